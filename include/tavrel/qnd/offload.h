/* The eight entry points through which a program that offloads with OpenMP runs the estimates of
   a statistics task on the device of an OpenMP interop object. Usable from C and C++.

   `task` is a statistics task of the core library's statistics component whose arrays lie in
   memory that the interop's device can access; the integers behind its n_dims, n_observations
   and storage fields are read on the host. `estimates` is the 64-bit mask of estimates; `method`
   is 1 (everything from the observations; estimates resting on lower moments store the mean and
   raw moments too) or 256 (`mean` holds the caller's mean). `interop` is the omp_interop_t of
   the offload region.

   The lp64 forms read 32-bit integers (n_dims, n_observations, storage, `method` and the entries
   of the dimension mask), the ilp64 forms and the Fortran forms without suffix 64-bit ones. The
   Fortran forms take the task, the mask and the method by reference, the interop by value.
   A 32-bit dimension mask is read 64 bits at a time: pad an odd count of entries to an even one
   and align the array to 8 bytes.
   A group's last kernel may still run when the call returns: synchronise with the interop's
   queue (as for any work of the offload region) before reading the results or freeing the arrays.
   Some arrays are written whenever their group runs (any of its estimates asked for), so give
   them with the group: the mean for raw moments, the raw sum of order 1 for raw sums, the
   order-2 result for central moments and central sums, and with method 1 for these two also
   the mean and the raw moments up to the highest order whose result you give.

   Result: 0, or the status of the last group of estimates that ran; -3 for a storage format
   other than row-major (65536) or column-major (131072); -2 when the interop runtime cannot be
   loaded, the interop names no usable runtime, or an exception was caught (its text goes to the
   standard error stream); -1 when the interop's memory cannot be used (OpenCL with shared
   virtual memory asked for by LIBOMPTARGET_OPENCL_USE_SVM) or its runtime is not known;
   -4002, -4001, -4032 for n_observations below 1, n_dims below 1, no observations, tested in
   that order; codes of the -4006 to -4080 range for missing outputs and -4029 for a method that
   an estimate does not accept. The arrays of groups that ran before a failure stay written. */
#ifndef TAVREL_QND_OFFLOAD_H
#define TAVREL_QND_OFFLOAD_H

#include <stdint.h>

/* The library is built with hidden visibility: these declarations export the entry points. */
#if defined(__GNUC__)
#define TAVREL_QND_OFFLOAD_API __attribute__((visibility("default")))
#else
#define TAVREL_QND_OFFLOAD_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* float tasks, 32-bit integers */
TAVREL_QND_OFFLOAD_API int32_t qnd_rtk_sSSCompute_omp_offload_lp64(void* task,
                                                                   uint64_t estimates,
                                                                   int32_t method,
                                                                   void* interop);
/* double tasks, 32-bit integers */
TAVREL_QND_OFFLOAD_API int32_t qnd_rtk_dSSCompute_omp_offload_lp64(void* task,
                                                                   uint64_t estimates,
                                                                   int32_t method,
                                                                   void* interop);
/* float tasks, 64-bit integers */
TAVREL_QND_OFFLOAD_API int32_t qnd_rtk_sSSCompute_omp_offload_ilp64(void* task,
                                                                    uint64_t estimates,
                                                                    int64_t method,
                                                                    void* interop);
/* double tasks, 64-bit integers */
TAVREL_QND_OFFLOAD_API int32_t qnd_rtk_dSSCompute_omp_offload_ilp64(void* task,
                                                                    uint64_t estimates,
                                                                    int64_t method,
                                                                    void* interop);

/* Fortran forms of the four above. */
TAVREL_QND_OFFLOAD_API int32_t qnd_rtk_ssscompute_omp_offload_lp64(void* const* task,
                                                                   const uint64_t* estimates,
                                                                   const int32_t* method,
                                                                   void* interop);
TAVREL_QND_OFFLOAD_API int32_t qnd_rtk_dsscompute_omp_offload_lp64(void* const* task,
                                                                   const uint64_t* estimates,
                                                                   const int32_t* method,
                                                                   void* interop);
TAVREL_QND_OFFLOAD_API int32_t qnd_rtk_ssscompute_omp_offload(void* const* task,
                                                              const uint64_t* estimates,
                                                              const int64_t* method,
                                                              void* interop);
TAVREL_QND_OFFLOAD_API int32_t qnd_rtk_dsscompute_omp_offload(void* const* task,
                                                              const uint64_t* estimates,
                                                              const int64_t* method,
                                                              void* interop);

#ifdef __cplusplus
}
#endif

#endif
