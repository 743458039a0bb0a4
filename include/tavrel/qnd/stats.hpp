// The public statistics interface: the layout and method values, the dataset record, and the
// estimators of all eleven families in their pointer and buffer forms.
#pragma once

#include <cstdint>
#include <vector>

#include <sycl/sycl.hpp>

#include "tavrel/qnd/exceptions.hpp"

#pragma GCC visibility push(default)

// The library is built with hidden visibility, and function templates take none from the pragma
// above: this marks the estimators, whose explicit instantiations are what the library exports.
#define TAVREL_QND_EXPORT __attribute__((visibility("default")))

namespace tavrel::qnd::stats {

// How the n_dims x n_observations matrix lies in memory. row_major: the observations of one
// dimension are contiguous (d * n_observations + i); col_major: the dimensions of one
// observation are contiguous (i * n_dims + d).
enum layout : std::int64_t { row_major = 0x10000, col_major = 0x20000 };

// The first template value of every estimator. Only central_sum and central_moment without a
// caller's mean compute differently under alternate; everywhere else both name one function.
enum method : int { fast = 1, alternate = 2 };

// Description of the observations; see the two forms below.
template <layout L, typename Data>
struct dataset;

// Pointer form: every array must be accessible from the queue's device. weights (one per
// observation) and indices (one per dimension; 0 skips that dimension) are optional: null means
// unweighted and all dimensions kept. Nothing checks the arrays' lengths.
template <layout L, typename T>
struct dataset<L, T*> {
    dataset() = default;
    dataset(std::int64_t n_dims,
            std::int64_t n_observations,
            T* observations,
            T* weights = nullptr,
            std::int64_t* indices = nullptr)
        : n_dims(n_dims),
          n_observations(n_observations),
          observations(observations),
          weights(weights),
          indices(indices) {}

    std::int64_t n_dims = 0;
    std::int64_t n_observations = 0;
    T* observations = nullptr;
    T* weights = nullptr;
    std::int64_t* indices = nullptr;
};

// Buffer form: an optional array is absent when its buffer has size 0.
template <layout L, typename T>
struct dataset<L, sycl::buffer<T, 1>> {
    dataset() = default;
    dataset(
        std::int64_t n_dims,
        std::int64_t n_observations,
        sycl::buffer<T, 1> observations,
        sycl::buffer<T, 1> weights = sycl::buffer<T, 1>(sycl::range<1>(0)),
        sycl::buffer<std::int64_t, 1> indices = sycl::buffer<std::int64_t, 1>(sycl::range<1>(0)))
        : n_dims(n_dims),
          n_observations(n_observations),
          observations(observations),
          weights(weights),
          indices(indices) {}

    std::int64_t n_dims = 0;
    std::int64_t n_observations = 0;
    sycl::buffer<T, 1> observations{sycl::range<1>(0)};
    sycl::buffer<T, 1> weights{sycl::range<1>(0)};
    sycl::buffer<std::int64_t, 1> indices{sycl::range<1>(0)};
};

// Every estimator below:
// - M is a method value, T is float or double, L is row_major or col_major;
// - each output (and a caller's mean) is an array of n_dims elements, one per dimension;
// - the pointer form waits for `dependencies` and returns the event of its last command; the
//   buffer form orders itself through the buffers and returns nothing;
// - a missing required output throws invalid_argument before anything is enqueued; a device
//   that is neither a CPU nor a GPU throws unsupported_device;
// - a dimension that the mask skips leaves every output unchanged at its position.
// Moments of order 2 divide by the reliability-weights denominator W - W2 / W (n - 1 unweighted),
// orders 3 and 4 by W; kurtosis is the excess kurtosis; variation is standard deviation / mean.
// Weights that are zero, negative or not a number count as 1.

// Weighted mean.
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event mean(sycl::queue& queue,
                                   const dataset<L, T*>& data,
                                   T* mean,
                                   const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void mean(sycl::queue& queue,
                            const dataset<L, sycl::buffer<T, 1>>& data,
                            sycl::buffer<T, 1> mean);

// Weighted raw sums of orders 1 to 4: the sums of w * x^k. Any of them may be left out (null or
// empty), not all.
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event raw_sum(sycl::queue& queue,
                                      const dataset<L, T*>& data,
                                      T* s1,
                                      T* s2,
                                      T* s3,
                                      T* s4,
                                      const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void raw_sum(sycl::queue& queue,
                               const dataset<L, sycl::buffer<T, 1>>& data,
                               sycl::buffer<T, 1> s1,
                               sycl::buffer<T, 1> s2,
                               sycl::buffer<T, 1> s3,
                               sycl::buffer<T, 1> s4);

// Raw moments of orders 1 (the mean) to 4: the raw sums divided by W. Any may be left out, not
// all.
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event raw_moment(sycl::queue& queue,
                                         const dataset<L, T*>& data,
                                         T* mean,
                                         T* r2,
                                         T* r3,
                                         T* r4,
                                         const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void raw_moment(sycl::queue& queue,
                                  const dataset<L, sycl::buffer<T, 1>>& data,
                                  sycl::buffer<T, 1> mean,
                                  sycl::buffer<T, 1> r2,
                                  sycl::buffer<T, 1> r3,
                                  sycl::buffer<T, 1> r4);

// Weighted central sums of orders 2 to 4, around the data's mean or around the caller's `mean`.
// Any may be left out, not all.
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event central_sum(sycl::queue& queue,
                                          const dataset<L, T*>& data,
                                          T* cs2,
                                          T* cs3,
                                          T* cs4,
                                          const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event central_sum(sycl::queue& queue,
                                          T* mean,
                                          const dataset<L, T*>& data,
                                          T* cs2,
                                          T* cs3,
                                          T* cs4,
                                          const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void central_sum(sycl::queue& queue,
                                   const dataset<L, sycl::buffer<T, 1>>& data,
                                   sycl::buffer<T, 1> cs2,
                                   sycl::buffer<T, 1> cs3,
                                   sycl::buffer<T, 1> cs4);
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void central_sum(sycl::queue& queue,
                                   sycl::buffer<T, 1> mean,
                                   const dataset<L, sycl::buffer<T, 1>>& data,
                                   sycl::buffer<T, 1> cs2,
                                   sycl::buffer<T, 1> cs3,
                                   sycl::buffer<T, 1> cs4);

// Central moments of orders 2 to 4, around the data's mean or around the caller's `mean`. Any
// may be left out, not all.
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event central_moment(sycl::queue& queue,
                                             const dataset<L, T*>& data,
                                             T* c2,
                                             T* c3,
                                             T* c4,
                                             const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event central_moment(sycl::queue& queue,
                                             T* mean,
                                             const dataset<L, T*>& data,
                                             T* c2,
                                             T* c3,
                                             T* c4,
                                             const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void central_moment(sycl::queue& queue,
                                      const dataset<L, sycl::buffer<T, 1>>& data,
                                      sycl::buffer<T, 1> c2,
                                      sycl::buffer<T, 1> c3,
                                      sycl::buffer<T, 1> c4);
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void central_moment(sycl::queue& queue,
                                      sycl::buffer<T, 1> mean,
                                      const dataset<L, sycl::buffer<T, 1>>& data,
                                      sycl::buffer<T, 1> c2,
                                      sycl::buffer<T, 1> c3,
                                      sycl::buffer<T, 1> c4);

// Coefficient of variation: standard deviation / mean (the caller's mean in the second form).
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event variation(sycl::queue& queue,
                                        const dataset<L, T*>& data,
                                        T* variation,
                                        const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event variation(sycl::queue& queue,
                                        T* mean,
                                        const dataset<L, T*>& data,
                                        T* variation,
                                        const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void variation(sycl::queue& queue,
                                 const dataset<L, sycl::buffer<T, 1>>& data,
                                 sycl::buffer<T, 1> variation);
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void variation(sycl::queue& queue,
                                 sycl::buffer<T, 1> mean,
                                 const dataset<L, sycl::buffer<T, 1>>& data,
                                 sycl::buffer<T, 1> variation);

// Skewness: third central moment / variance^(3/2).
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event skewness(sycl::queue& queue,
                                       const dataset<L, T*>& data,
                                       T* skewness,
                                       const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event skewness(sycl::queue& queue,
                                       T* mean,
                                       const dataset<L, T*>& data,
                                       T* skewness,
                                       const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void skewness(sycl::queue& queue,
                                const dataset<L, sycl::buffer<T, 1>>& data,
                                sycl::buffer<T, 1> skewness);
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void skewness(sycl::queue& queue,
                                sycl::buffer<T, 1> mean,
                                const dataset<L, sycl::buffer<T, 1>>& data,
                                sycl::buffer<T, 1> skewness);

// Excess kurtosis: fourth central moment / variance^2 - 3.
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event kurtosis(sycl::queue& queue,
                                       const dataset<L, T*>& data,
                                       T* kurtosis,
                                       const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event kurtosis(sycl::queue& queue,
                                       T* mean,
                                       const dataset<L, T*>& data,
                                       T* kurtosis,
                                       const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void kurtosis(sycl::queue& queue,
                                const dataset<L, sycl::buffer<T, 1>>& data,
                                sycl::buffer<T, 1> kurtosis);
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void kurtosis(sycl::queue& queue,
                                sycl::buffer<T, 1> mean,
                                const dataset<L, sycl::buffer<T, 1>>& data,
                                sycl::buffer<T, 1> kurtosis);

// Smallest value per dimension (method value 1 only).
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event min(sycl::queue& queue,
                                  const dataset<L, T*>& data,
                                  T* min,
                                  const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void min(sycl::queue& queue,
                           const dataset<L, sycl::buffer<T, 1>>& data,
                           sycl::buffer<T, 1> min);

// Largest value per dimension (method value 1 only).
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event max(sycl::queue& queue,
                                  const dataset<L, T*>& data,
                                  T* max,
                                  const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void max(sycl::queue& queue,
                           const dataset<L, sycl::buffer<T, 1>>& data,
                           sycl::buffer<T, 1> max);

// Smallest and largest value per dimension, both required (method value 1 only).
template <int M, typename T, layout L>
TAVREL_QND_EXPORT sycl::event min_max(sycl::queue& queue,
                                      const dataset<L, T*>& data,
                                      T* min,
                                      T* max,
                                      const std::vector<sycl::event>& dependencies = {});
template <int M, typename T, layout L>
TAVREL_QND_EXPORT void min_max(sycl::queue& queue,
                               const dataset<L, sycl::buffer<T, 1>>& data,
                               sycl::buffer<T, 1> min,
                               sycl::buffer<T, 1> max);

}  // namespace tavrel::qnd::stats

#pragma GCC visibility pop
