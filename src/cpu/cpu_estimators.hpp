// The CPU side of every estimator's frame: the temporaries a family needs, its adapter, and the
// host task that hands the work to the core library.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <sycl/sycl.hpp>

#include "tavrel/qnd/exceptions.hpp"
#include "tavrel/qnd/stats.hpp"

#include "cpu/adapters.hpp"
#include "cpu/submit_helper.hpp"

namespace tavrel::qnd::stats::detail::cpu {

// The method value that announces a mean of the caller's to the core library.
constexpr std::int64_t method_given_mean = 256;

// Pointer-form temporaries: one shared array of n_dims elements for each wanted entry, null for
// the others. If any wanted one fails, those that did not are freed in order of allocation and
// device_bad_alloc names the family and the queue's device. A call of no dimensions still gets an
// element each, since an allocation of zero may come back null: the core library then reports
// the empty task like every other family does.
template <typename T, std::size_t N>
std::array<T*, N> allocate_temporaries(sycl::queue& queue,
                                       std::int64_t n_dims,
                                       const std::array<bool, N>& wanted,
                                       const char* family) {
    std::array<T*, N> arrays{};
    const auto count = static_cast<std::size_t>(std::max<std::int64_t>(n_dims, 1));
    bool failed = false;
    for (std::size_t k = 0; k < N; ++k) {
        if (!wanted[k])
            continue;
        arrays[k] = sycl::malloc_shared<T>(count, queue);
        failed = failed || arrays[k] == nullptr;
    }
    if (failed) {
        for (T* array : arrays)
            if (array != nullptr)
                sycl::free(array, queue);
        throw device_bad_alloc("rng", family, queue.get_device());
    }
    return arrays;
}

// A pointer-form call with temporaries ends when its host task does: the event is waited for
// (without throwing: a failure went to the queue's handler), the temporaries are freed in order
// of allocation, and the completed event goes back.
template <layout L, typename T, typename F, std::size_t N>
sycl::event submit_and_release(sycl::queue& queue,
                               const dataset<L, T*>& data,
                               const F& adapter,
                               const std::vector<sycl::event>& dependencies,
                               const std::array<T*, N>& temporaries) {
    const auto release = [&] {
        for (T* array : temporaries)
            if (array != nullptr)
                sycl::free(array, queue);
    };
    sycl::event done;
    try {
        done = submit<L>(queue, data, adapter, dependencies);
    } catch (...) {
        release();
        throw;
    }
    done.wait();
    release();
    return done;
}

// A buffer-form temporary: n_dims elements when wanted, one otherwise, so that every accessor
// has storage to bind.
template <typename T>
sycl::buffer<T, 1> buffer_temporary(std::int64_t n_dims, bool wanted) {
    return sycl::buffer<T, 1>(sycl::range<1>(wanted ? static_cast<std::size_t>(n_dims) : 1));
}

// A result the caller left empty is replaced by one element of filler.
template <typename T>
sycl::buffer<T, 1> filled_in(const sycl::buffer<T, 1>& result) {
    return result.size() != 0 ? result : sycl::buffer<T, 1>(sycl::range<1>(1));
}

template <typename T>
cpu_array<T, false> given_array(sycl::buffer<T, 1> buffer) {
    return cpu_array<T, false>(buffer, buffer.size() != 0);
}

// ---- mean, min, max, min_max, raw_sum, raw_moment: no temporaries, method 1 ----

template <typename T, layout L>
sycl::event run_mean(sycl::queue& queue,
                     const dataset<L, T*>& data,
                     T* mean,
                     const std::vector<sycl::event>& dependencies) {
    return submit<L>(queue, data, mean_func<T, true>{{mean}, 1}, dependencies);
}

template <typename T, layout L>
void run_mean(sycl::queue& queue,
              const dataset<L, sycl::buffer<T, 1>>& data,
              sycl::buffer<T, 1> mean) {
    submit<L>(queue, data, mean_func<T, false>{{mean, true}, 1});
}

template <typename T, layout L>
sycl::event run_min(sycl::queue& queue,
                    const dataset<L, T*>& data,
                    T* min,
                    const std::vector<sycl::event>& dependencies) {
    return submit<L>(queue, data, min_func<T, true>{{min}, 1}, dependencies);
}

template <typename T, layout L>
void run_min(sycl::queue& queue,
             const dataset<L, sycl::buffer<T, 1>>& data,
             sycl::buffer<T, 1> min) {
    submit<L>(queue, data, min_func<T, false>{{min, true}, 1});
}

template <typename T, layout L>
sycl::event run_max(sycl::queue& queue,
                    const dataset<L, T*>& data,
                    T* max,
                    const std::vector<sycl::event>& dependencies) {
    return submit<L>(queue, data, max_func<T, true>{{max}, 1}, dependencies);
}

template <typename T, layout L>
void run_max(sycl::queue& queue,
             const dataset<L, sycl::buffer<T, 1>>& data,
             sycl::buffer<T, 1> max) {
    submit<L>(queue, data, max_func<T, false>{{max, true}, 1});
}

template <typename T, layout L>
sycl::event run_min_max(sycl::queue& queue,
                        const dataset<L, T*>& data,
                        T* min,
                        T* max,
                        const std::vector<sycl::event>& dependencies) {
    return submit<L>(queue, data, min_max_func<T, true>{{min}, {max}, 1}, dependencies);
}

template <typename T, layout L>
void run_min_max(sycl::queue& queue,
                 const dataset<L, sycl::buffer<T, 1>>& data,
                 sycl::buffer<T, 1> min,
                 sycl::buffer<T, 1> max) {
    submit<L>(queue, data, min_max_func<T, false>{{min, true}, {max, true}, 1});
}

template <typename T, layout L>
sycl::event run_raw_sum(sycl::queue& queue,
                        const dataset<L, T*>& data,
                        T* s1,
                        T* s2,
                        T* s3,
                        T* s4,
                        const std::vector<sycl::event>& dependencies) {
    return submit<L>(queue, data, raw_sum_func<T, true>{{s1}, {s2}, {s3}, {s4}, 1}, dependencies);
}

template <typename T, layout L>
void run_raw_sum(sycl::queue& queue,
                 const dataset<L, sycl::buffer<T, 1>>& data,
                 sycl::buffer<T, 1> s1,
                 sycl::buffer<T, 1> s2,
                 sycl::buffer<T, 1> s3,
                 sycl::buffer<T, 1> s4) {
    submit<L>(queue, data,
              raw_sum_func<T, false>{given_array(s1), given_array(s2), given_array(s3),
                                     given_array(s4), 1});
}

template <typename T, layout L>
sycl::event run_raw_moment(sycl::queue& queue,
                           const dataset<L, T*>& data,
                           T* mean,
                           T* r2,
                           T* r3,
                           T* r4,
                           const std::vector<sycl::event>& dependencies) {
    return submit<L>(queue, data, raw_moment_func<T, true>{{mean}, {r2}, {r3}, {r4}, 1},
                     dependencies);
}

template <typename T, layout L>
void run_raw_moment(sycl::queue& queue,
                    const dataset<L, sycl::buffer<T, 1>>& data,
                    sycl::buffer<T, 1> mean,
                    sycl::buffer<T, 1> r2,
                    sycl::buffer<T, 1> r3,
                    sycl::buffer<T, 1> r4) {
    submit<L>(queue, data,
              raw_moment_func<T, false>{given_array(mean), given_array(r2), given_array(r3),
                                        given_array(r4), 1});
}

// ---- central_sum ----

// Without a mean: value 1 goes through the raw moments (temporaries mean, r2, r3 if cs3, r4 if
// cs4); value 2 needs the mean alone and tells the core library 2.
template <int M, typename T, layout L>
sycl::event run_central_sum(sycl::queue& queue,
                            const dataset<L, T*>& data,
                            T* cs2,
                            T* cs3,
                            T* cs4,
                            const std::vector<sycl::event>& dependencies) {
    if constexpr (M == alternate) {
        const auto t = allocate_temporaries<T, 1>(queue, data.n_dims, {true}, "central_sum");
        const central_sum_func<T, true> adapter{{t[0]}, {cs2}, {cs3}, {cs4}, 2};
        return submit_and_release<L>(queue, data, adapter, dependencies, t);
    } else {
        const auto t = allocate_temporaries<T, 4>(
            queue, data.n_dims, {true, true, cs3 != nullptr, cs4 != nullptr}, "central_sum");
        const central_sum_func_fast<T, true> adapter{{t[0]}, {t[1]}, {t[2]}, {t[3]},
                                                     {cs2},  {cs3},  {cs4}};
        return submit_and_release<L>(queue, data, adapter, dependencies, t);
    }
}

template <typename T, layout L>
sycl::event run_central_sum(sycl::queue& queue,
                            T* mean,
                            const dataset<L, T*>& data,
                            T* cs2,
                            T* cs3,
                            T* cs4,
                            const std::vector<sycl::event>& dependencies) {
    return submit<L>(queue, data,
                     central_sum_func<T, true>{{mean}, {cs2}, {cs3}, {cs4}, method_given_mean},
                     dependencies);
}

template <int M, typename T, layout L>
void run_central_sum(sycl::queue& queue,
                     const dataset<L, sycl::buffer<T, 1>>& data,
                     sycl::buffer<T, 1> cs2,
                     sycl::buffer<T, 1> cs3,
                     sycl::buffer<T, 1> cs4) {
    const bool order_3 = cs3.size() != 0;
    const bool order_4 = cs4.size() != 0;
    sycl::buffer<T, 1> mean = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> cs3_or_filler = filled_in(cs3);
    sycl::buffer<T, 1> cs4_or_filler = filled_in(cs4);
    if constexpr (M == alternate) {
        submit<L>(queue, data,
                  central_sum_func<T, false>{{mean, true},
                                             given_array(cs2),
                                             {cs3_or_filler, order_3},
                                             {cs4_or_filler, order_4},
                                             2});
    } else {
        sycl::buffer<T, 1> r2 = buffer_temporary<T>(data.n_dims, true);
        sycl::buffer<T, 1> r3 = buffer_temporary<T>(data.n_dims, order_3 || order_4);
        sycl::buffer<T, 1> r4 = buffer_temporary<T>(data.n_dims, order_4);
        submit<L>(queue, data,
                  central_sum_func_fast<T, false>{{mean, true},
                                                  {r2, true},
                                                  {r3, order_3 || order_4},
                                                  {r4, order_4},
                                                  given_array(cs2),
                                                  {cs3_or_filler, order_3},
                                                  {cs4_or_filler, order_4}});
    }
    // Leaving scope destroys the temporaries, which waits for the host task.
}

template <typename T, layout L>
void run_central_sum(sycl::queue& queue,
                     sycl::buffer<T, 1> mean,
                     const dataset<L, sycl::buffer<T, 1>>& data,
                     sycl::buffer<T, 1> cs2,
                     sycl::buffer<T, 1> cs3,
                     sycl::buffer<T, 1> cs4) {
    const bool order_3 = cs3.size() != 0;
    const bool order_4 = cs4.size() != 0;
    sycl::buffer<T, 1> cs3_or_filler = filled_in(cs3);
    sycl::buffer<T, 1> cs4_or_filler = filled_in(cs4);
    submit<L>(queue, data,
              central_sum_func<T, false>{{mean, true},
                                         given_array(cs2),
                                         {cs3_or_filler, order_3},
                                         {cs4_or_filler, order_4},
                                         method_given_mean});
}

// ---- central_moment: the method value goes to the core library as it is ----

template <int M, typename T, layout L>
sycl::event run_central_moment(sycl::queue& queue,
                               const dataset<L, T*>& data,
                               T* c2,
                               T* c3,
                               T* c4,
                               const std::vector<sycl::event>& dependencies) {
    const auto t = allocate_temporaries<T, 4>(
        queue, data.n_dims, {true, true, c3 != nullptr, c4 != nullptr}, "central_moment");
    const central_moment_func<T, true> adapter{{t[0]}, {t[1]}, {t[2]}, {t[3]}, {c2}, {c3}, {c4}, M};
    return submit_and_release<L>(queue, data, adapter, dependencies, t);
}

template <typename T, layout L>
sycl::event run_central_moment(sycl::queue& queue,
                               T* mean,
                               const dataset<L, T*>& data,
                               T* c2,
                               T* c3,
                               T* c4,
                               const std::vector<sycl::event>& dependencies) {
    const auto t = allocate_temporaries<T, 3>(
        queue, data.n_dims, {true, c3 != nullptr, c4 != nullptr}, "central_moment");
    const central_moment_func<T, true> adapter{{mean}, {t[0]}, {t[1]}, {t[2]},
                                               {c2},   {c3},   {c4},   method_given_mean};
    return submit_and_release<L>(queue, data, adapter, dependencies, t);
}

template <int M, typename T, layout L>
void run_central_moment(sycl::queue& queue,
                        const dataset<L, sycl::buffer<T, 1>>& data,
                        sycl::buffer<T, 1> c2,
                        sycl::buffer<T, 1> c3,
                        sycl::buffer<T, 1> c4) {
    const bool order_3 = c3.size() != 0;
    const bool order_4 = c4.size() != 0;
    sycl::buffer<T, 1> mean = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r3 = buffer_temporary<T>(data.n_dims, order_3 || order_4);
    sycl::buffer<T, 1> r4 = buffer_temporary<T>(data.n_dims, order_4);
    sycl::buffer<T, 1> c3_or_filler = filled_in(c3);
    sycl::buffer<T, 1> c4_or_filler = filled_in(c4);
    submit<L>(queue, data,
              central_moment_func<T, false>{{mean, true},
                                            {r2, true},
                                            {r3, order_3 || order_4},
                                            {r4, order_4},
                                            given_array(c2),
                                            {c3_or_filler, order_3},
                                            {c4_or_filler, order_4},
                                            M});
}

template <typename T, layout L>
void run_central_moment(sycl::queue& queue,
                        sycl::buffer<T, 1> mean,
                        const dataset<L, sycl::buffer<T, 1>>& data,
                        sycl::buffer<T, 1> c2,
                        sycl::buffer<T, 1> c3,
                        sycl::buffer<T, 1> c4) {
    const bool order_3 = c3.size() != 0;
    const bool order_4 = c4.size() != 0;
    sycl::buffer<T, 1> r2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r3 = buffer_temporary<T>(data.n_dims, order_3 || order_4);
    sycl::buffer<T, 1> r4 = buffer_temporary<T>(data.n_dims, order_4);
    sycl::buffer<T, 1> c3_or_filler = filled_in(c3);
    sycl::buffer<T, 1> c4_or_filler = filled_in(c4);
    submit<L>(queue, data,
              central_moment_func<T, false>{{mean, true},
                                            {r2, true},
                                            {r3, order_3 || order_4},
                                            {r4, order_4},
                                            given_array(c2),
                                            {c3_or_filler, order_3},
                                            {c4_or_filler, order_4},
                                            method_given_mean});
}

// ---- skewness, kurtosis, variation: method 1, or 256 around the caller's mean ----

template <typename T, layout L>
sycl::event run_skewness(sycl::queue& queue,
                         const dataset<L, T*>& data,
                         T* skewness,
                         const std::vector<sycl::event>& dependencies) {
    const auto t =
        allocate_temporaries<T, 5>(queue, data.n_dims, {true, true, true, true, true}, "skewness");
    const skewness_func<T, true> adapter{{t[0]}, {t[1]}, {t[2]}, {t[3]}, {t[4]}, {skewness}, 1};
    return submit_and_release<L>(queue, data, adapter, dependencies, t);
}

template <typename T, layout L>
sycl::event run_skewness(sycl::queue& queue,
                         T* mean,
                         const dataset<L, T*>& data,
                         T* skewness,
                         const std::vector<sycl::event>& dependencies) {
    const auto t =
        allocate_temporaries<T, 4>(queue, data.n_dims, {true, true, true, true}, "skewness");
    const skewness_func<T, true> adapter{{mean}, {t[0]},     {t[1]},           {t[2]},
                                         {t[3]}, {skewness}, method_given_mean};
    return submit_and_release<L>(queue, data, adapter, dependencies, t);
}

template <typename T, layout L>
void run_skewness(sycl::queue& queue,
                  const dataset<L, sycl::buffer<T, 1>>& data,
                  sycl::buffer<T, 1> skewness) {
    sycl::buffer<T, 1> mean = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r3 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> c2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> c3 = buffer_temporary<T>(data.n_dims, true);
    submit<L>(
        queue, data,
        skewness_func<T, false>{
            {mean, true}, {r2, true}, {r3, true}, {c2, true}, {c3, true}, {skewness, true}, 1});
}

template <typename T, layout L>
void run_skewness(sycl::queue& queue,
                  sycl::buffer<T, 1> mean,
                  const dataset<L, sycl::buffer<T, 1>>& data,
                  sycl::buffer<T, 1> skewness) {
    sycl::buffer<T, 1> r2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r3 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> c2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> c3 = buffer_temporary<T>(data.n_dims, true);
    submit<L>(queue, data,
              skewness_func<T, false>{{mean, true},
                                      {r2, true},
                                      {r3, true},
                                      {c2, true},
                                      {c3, true},
                                      {skewness, true},
                                      method_given_mean});
}

template <typename T, layout L>
sycl::event run_kurtosis(sycl::queue& queue,
                         const dataset<L, T*>& data,
                         T* kurtosis,
                         const std::vector<sycl::event>& dependencies) {
    const auto t = allocate_temporaries<T, 6>(queue, data.n_dims,
                                              {true, true, true, true, true, true}, "kurtosis");
    const kurtosis_func<T, true> adapter{{t[0]}, {t[1]}, {t[2]},     {t[3]},
                                         {t[4]}, {t[5]}, {kurtosis}, 1};
    return submit_and_release<L>(queue, data, adapter, dependencies, t);
}

template <typename T, layout L>
sycl::event run_kurtosis(sycl::queue& queue,
                         T* mean,
                         const dataset<L, T*>& data,
                         T* kurtosis,
                         const std::vector<sycl::event>& dependencies) {
    const auto t =
        allocate_temporaries<T, 5>(queue, data.n_dims, {true, true, true, true, true}, "kurtosis");
    const kurtosis_func<T, true> adapter{{mean}, {t[0]}, {t[1]},     {t[2]},
                                         {t[3]}, {t[4]}, {kurtosis}, method_given_mean};
    return submit_and_release<L>(queue, data, adapter, dependencies, t);
}

template <typename T, layout L>
void run_kurtosis(sycl::queue& queue,
                  const dataset<L, sycl::buffer<T, 1>>& data,
                  sycl::buffer<T, 1> kurtosis) {
    sycl::buffer<T, 1> mean = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r3 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r4 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> c2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> c4 = buffer_temporary<T>(data.n_dims, true);
    submit<L>(queue, data,
              kurtosis_func<T, false>{{mean, true},
                                      {r2, true},
                                      {r3, true},
                                      {r4, true},
                                      {c2, true},
                                      {c4, true},
                                      {kurtosis, true},
                                      1});
}

template <typename T, layout L>
void run_kurtosis(sycl::queue& queue,
                  sycl::buffer<T, 1> mean,
                  const dataset<L, sycl::buffer<T, 1>>& data,
                  sycl::buffer<T, 1> kurtosis) {
    sycl::buffer<T, 1> r2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r3 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r4 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> c2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> c4 = buffer_temporary<T>(data.n_dims, true);
    submit<L>(queue, data,
              kurtosis_func<T, false>{{mean, true},
                                      {r2, true},
                                      {r3, true},
                                      {r4, true},
                                      {c2, true},
                                      {c4, true},
                                      {kurtosis, true},
                                      method_given_mean});
}

template <typename T, layout L>
sycl::event run_variation(sycl::queue& queue,
                          const dataset<L, T*>& data,
                          T* variation,
                          const std::vector<sycl::event>& dependencies) {
    const auto t = allocate_temporaries<T, 3>(queue, data.n_dims, {true, true, true}, "variation");
    const variation_func<T, true> adapter{{t[0]}, {t[1]}, {t[2]}, {variation}, 1};
    return submit_and_release<L>(queue, data, adapter, dependencies, t);
}

template <typename T, layout L>
sycl::event run_variation(sycl::queue& queue,
                          T* mean,
                          const dataset<L, T*>& data,
                          T* variation,
                          const std::vector<sycl::event>& dependencies) {
    const auto t = allocate_temporaries<T, 2>(queue, data.n_dims, {true, true}, "variation");
    const variation_func<T, true> adapter{{mean}, {t[0]}, {t[1]}, {variation}, method_given_mean};
    return submit_and_release<L>(queue, data, adapter, dependencies, t);
}

template <typename T, layout L>
void run_variation(sycl::queue& queue,
                   const dataset<L, sycl::buffer<T, 1>>& data,
                   sycl::buffer<T, 1> variation) {
    sycl::buffer<T, 1> mean = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> r2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> c2 = buffer_temporary<T>(data.n_dims, true);
    submit<L>(queue, data,
              variation_func<T, false>{{mean, true}, {r2, true}, {c2, true}, {variation, true}, 1});
}

template <typename T, layout L>
void run_variation(sycl::queue& queue,
                   sycl::buffer<T, 1> mean,
                   const dataset<L, sycl::buffer<T, 1>>& data,
                   sycl::buffer<T, 1> variation) {
    sycl::buffer<T, 1> r2 = buffer_temporary<T>(data.n_dims, true);
    sycl::buffer<T, 1> c2 = buffer_temporary<T>(data.n_dims, true);
    submit<L>(queue, data,
              variation_func<T, false>{
                  {mean, true}, {r2, true}, {c2, true}, {variation, true}, method_given_mean});
}

}  // namespace tavrel::qnd::stats::detail::cpu
