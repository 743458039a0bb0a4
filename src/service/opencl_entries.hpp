// The table of OpenCL entries, bound all or nothing by name on first use: a test for the
// presence of an OpenCL runtime, with one wrapper per entry under the entry's name.
#pragma once

#include <cstdint>
#include <type_traits>

#ifndef CL_TARGET_OPENCL_VERSION
#define CL_TARGET_OPENCL_VERSION 300
#endif
#include <CL/cl.h>

namespace tavrel::qnd::gpu::detail {

// The 98 entries in the order in which they are bound; the order has no meaning but is kept.
#define QND_OPENCL_ENTRIES(X)                   \
    X(clGetSupportedImageFormats)               \
    X(clGetKernelInfo)                          \
    X(clCompileProgram)                         \
    X(clUnloadPlatformCompiler)                 \
    X(clGetPlatformIDs)                         \
    X(clEnqueueBarrierWithWaitList)             \
    X(clEnqueueMapBuffer)                       \
    X(clEnqueueWriteBufferRect)                 \
    X(clGetKernelArgInfo)                       \
    X(clReleaseCommandQueue)                    \
    X(clEnqueueCopyImageToBuffer)               \
    X(clGetContextInfo)                         \
    X(clRetainCommandQueue)                     \
    X(clEnqueueWriteImage)                      \
    X(clEnqueueSVMUnmap)                        \
    X(clCreateProgramWithBinary)                \
    X(clReleaseSampler)                         \
    X(clGetDeviceIDs)                           \
    X(clCreateCommandQueueWithProperties)       \
    X(clReleaseContext)                         \
    X(clEnqueueUnmapMemObject)                  \
    X(clCreateContext)                          \
    X(clGetHostTimer)                           \
    X(clSetEventCallback)                       \
    X(clEnqueueCopyBuffer)                      \
    X(clRetainContext)                          \
    X(clCreateContextFromType)                  \
    X(clRetainProgram)                          \
    X(clEnqueueCopyImage)                       \
    X(clCreateProgramWithSource)                \
    X(clGetMemObjectInfo)                       \
    X(clLinkProgram)                            \
    X(clCreateSamplerWithProperties)            \
    X(clRetainSampler)                          \
    X(clEnqueueMapImage)                        \
    X(clEnqueueWriteBuffer)                     \
    X(clRetainKernel)                           \
    X(clEnqueueReadBufferRect)                  \
    X(clCreateSubDevices)                       \
    X(clGetDeviceAndHostTimer)                  \
    X(clFinish)                                 \
    X(clGetEventInfo)                           \
    X(clGetEventProfilingInfo)                  \
    X(clSetKernelArgSVMPointer)                 \
    X(clCreateImage)                            \
    X(clEnqueueSVMMemcpy)                       \
    X(clReleaseKernel)                          \
    X(clEnqueueNativeKernel)                    \
    X(clCreateKernelsInProgram)                 \
    X(clGetDeviceInfo)                          \
    X(clEnqueueNDRangeKernel)                   \
    X(clReleaseProgram)                         \
    X(clSetDefaultDeviceCommandQueue)           \
    X(clCreatePipe)                             \
    X(clGetPlatformInfo)                        \
    X(clEnqueueReadBuffer)                      \
    X(clSetMemObjectDestructorCallback)         \
    X(clGetKernelSubGroupInfo)                  \
    X(clEnqueueCopyBufferRect)                  \
    X(clWaitForEvents)                          \
    X(clEnqueueSVMMigrateMem)                   \
    X(clReleaseMemObject)                       \
    X(clCreateProgramWithBuiltInKernels)        \
    X(clCreateBuffer)                           \
    X(clGetProgramBuildInfo)                    \
    X(clEnqueueFillBuffer)                      \
    X(clEnqueueReadImage)                       \
    X(clEnqueueCopyBufferToImage)               \
    X(clGetExtensionFunctionAddressForPlatform) \
    X(clSetKernelArg)                           \
    X(clReleaseDevice)                          \
    X(clCreateSubBuffer)                        \
    X(clEnqueueFillImage)                       \
    X(clGetPipeInfo)                            \
    X(clEnqueueSVMMemFill)                      \
    X(clEnqueueSVMFree)                         \
    X(clEnqueueMigrateMemObjects)               \
    X(clGetCommandQueueInfo)                    \
    X(clBuildProgram)                           \
    X(clGetKernelWorkGroupInfo)                 \
    X(clReleaseEvent)                           \
    X(clRetainDevice)                           \
    X(clEnqueueSVMMap)                          \
    X(clRetainMemObject)                        \
    X(clSetUserEventStatus)                     \
    X(clCreateUserEvent)                        \
    X(clGetSamplerInfo)                         \
    X(clSetKernelExecInfo)                      \
    X(clCreateKernel)                           \
    X(clGetProgramInfo)                         \
    X(clSVMAlloc)                               \
    X(clRetainEvent)                            \
    X(clCloneKernel)                            \
    X(clGetImageInfo)                           \
    X(clFlush)                                  \
    X(clEnqueueMarkerWithWaitList)              \
    X(clCreateProgramWithIL)                    \
    X(clSVMFree)

enum opencl_entry : int {
#define QND_OPENCL_ENTRY_INDEX(name) opencl_##name,
    QND_OPENCL_ENTRIES(QND_OPENCL_ENTRY_INDEX)
#undef QND_OPENCL_ENTRY_INDEX
        opencl_entry_count
};

// Opens "libOpenCL.so.1" once and binds the 98 entries in order, stopping at the first missing
// one, whose predecessors stay bound. Returns 0 if all are bound, -1 if not; a failed load is not
// tried again. Thread-safe and idempotent.
int load_opencl_entries();

// The module `name` by its bare name through the library search path, or null. A name with a
// '/' is refused by the search directories' way and then tried once as it is.
void* load_library_by_name(const char* name);

// The entry's name, and its slot as it is now (null until bound).
const char* opencl_entry_name(opencl_entry entry);
void* opencl_entry_slot(opencl_entry entry);

// The entry's address, after one load attempt if its slot is empty; null if it cannot be had.
void* bound_opencl_entry(opencl_entry entry);

// Message 3 with the entry's name in single quotes, then the process ends with status 2.
void report_missing_opencl_entry(opencl_entry entry);

// The wrapper of `Entry`, whose published type is `Fn`: it calls through the slot with its
// arguments unchanged, or reports the missing entry. Should the process go on after that, a
// status result is 2 and a pointer result null.
template <opencl_entry Entry, typename Fn>
struct opencl_wrapper;

template <opencl_entry Entry, typename Result, typename... Args>
struct opencl_wrapper<Entry, Result CL_API_CALL(Args...)> {
    static Result CL_API_CALL call(Args... args) {
        void* address = bound_opencl_entry(Entry);
        if (address == nullptr) {
            report_missing_opencl_entry(Entry);
            if constexpr (std::is_void_v<Result>)
                return;
            else if constexpr (std::is_pointer_v<Result>)
                return nullptr;
            else
                return Result(2);
        }
        return reinterpret_cast<Result(CL_API_CALL*)(Args...)>(address)(args...);
    }
};

// The wrappers: clGetPlatformIDs and its kin, with the published signatures.
#define QND_OPENCL_WRAPPER(name) \
    inline constexpr auto& name = opencl_wrapper<opencl_##name, decltype(::name)>::call;
QND_OPENCL_ENTRIES(QND_OPENCL_WRAPPER)
#undef QND_OPENCL_WRAPPER

}  // namespace tavrel::qnd::gpu::detail
