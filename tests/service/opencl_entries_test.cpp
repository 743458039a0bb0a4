// The OpenCL entry table against the system's OpenCL runtime, and the ways of
// load_library_by_name.
#include <dlfcn.h>
#include <limits.h>

#include <string>

#include <gtest/gtest.h>

#include "service/opencl_entries.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;
namespace service = tavrel::qnd::gpu::detail;

// All 98 slots hold the runtime's own entries, and a wrapper answers as the runtime does.
TEST(service_opencl_entries, all_98_entries_of_the_system_runtime_are_bound) {
    ASSERT_EQ(opencl_entry_count, 98);
    EXPECT_EQ(load_opencl_entries(), 0);
    EXPECT_EQ(load_opencl_entries(), 0);
    void* runtime = dlopen("libOpenCL.so.1", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(runtime, nullptr);
    for (int e = 0; e < opencl_entry_count; ++e) {
        const auto entry = static_cast<opencl_entry>(e);
        EXPECT_NE(opencl_entry_slot(entry), nullptr) << opencl_entry_name(entry);
        EXPECT_EQ(opencl_entry_slot(entry), dlsym(runtime, opencl_entry_name(entry)));
    }
    cl_uint through_wrapper = 12345, direct = 54321;
    const cl_int status = service::clGetPlatformIDs(0, nullptr, &through_wrapper);
    EXPECT_EQ(reinterpret_cast<decltype(&::clGetPlatformIDs)>(dlsym(runtime, "clGetPlatformIDs"))(
                  0, nullptr, &direct),
              status);
    EXPECT_EQ(through_wrapper, direct);
    dlclose(runtime);
}

// A bare name is found on the library search path; a path skips the search and is tried once as
// it is; a missing name, or one too long to be kept, gives null.
TEST(service_opencl_entries, libraries_are_loaded_by_bare_name_or_by_path) {
    void* runtime = load_library_by_name("libOpenCL.so.1");
    ASSERT_NE(runtime, nullptr);
    Dl_info info{};
    ASSERT_NE(dladdr(dlsym(runtime, "clGetPlatformIDs"), &info), 0);
    EXPECT_EQ(load_library_by_name(info.dli_fname), runtime);
    EXPECT_EQ(load_library_by_name("/nonexistent/libOpenCL.so.1"), nullptr);
    EXPECT_EQ(load_library_by_name("libqnd_no_such_library.so.9"), nullptr);
    EXPECT_EQ(load_library_by_name(std::string(PATH_MAX + 10, 'x').c_str()), nullptr);
}

}  // namespace
