// Host-task submission of the CPU path: one host task builds a statistics task of the core
// library, lets an adapter edit it, computes it and deletes it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <sycl/sycl.hpp>

#include "tavrel/qnd/stats.hpp"

#include "cpu/ss_client.hpp"

namespace tavrel::qnd::stats::detail::cpu {

// The host-side address of an accessor's data.
template <typename Accessor>
inline auto data_of(const Accessor& accessor) {
    return std::addressof(accessor[0]);
}

// The body of every host task. The three integers are local because the core library keeps
// pointers to them until the task is deleted. A failing status throws computation_error and
// leaves the task undeleted.
template <layout L, typename T, typename F>
void compute_task(std::int64_t dims,
                  std::int64_t observation_count,
                  const T* observations,
                  const T* weights,
                  const std::int64_t* indices,
                  const F& adapter) {
    std::int64_t n_dims = dims;
    std::int64_t n_observations = observation_count;
    std::int64_t storage = L;
    ss_task* task = nullptr;
    ss_new_task(&task, &n_dims, &n_observations, &storage, observations, weights, indices);
    adapter.edit(task);
    ss_compute<T>(task, adapter.mask(), adapter.method_value());
    ss_delete_task(&task);
}

// Pointer form: the host task waits for `dependencies`; its event goes back to the caller and
// nothing here waits for it.
template <layout L, typename F, typename T>
sycl::event submit(sycl::queue& queue,
                   const dataset<L, T*>& data,
                   F adapter,
                   const std::vector<sycl::event>& dependencies) {
    const dataset<L, T*> copy = data;
    return queue.submit([&](sycl::handler& cgh) {
        cgh.depends_on(dependencies);
        cgh.host_task([copy, adapter] {
            compute_task<L>(copy.n_dims, copy.n_observations, copy.observations, copy.weights,
                            copy.indices, adapter);
        });
    });
}

// Buffer form: the data are read through accessors, the adapter's arrays through its placeholder
// accessors. An optional buffer of size 0 is absent and the core library gets null for it, so
// there is one host task for each combination of weights and mask.
template <layout L, typename F, typename T>
sycl::event submit(sycl::queue& queue, const dataset<L, sycl::buffer<T, 1>>& data, F adapter) {
    dataset<L, sycl::buffer<T, 1>> copy = data;
    const std::int64_t n_dims = copy.n_dims;
    const std::int64_t n_observations = copy.n_observations;
    const bool has_weights = copy.weights.size() != 0;
    const bool has_indices = copy.indices.size() != 0;
    return queue.submit([&](sycl::handler& cgh) {
        sycl::accessor observations{copy.observations, cgh, sycl::read_only};
        adapter.require(cgh);
        if (has_weights && has_indices) {
            sycl::accessor weights{copy.weights, cgh, sycl::read_only};
            sycl::accessor indices{copy.indices, cgh, sycl::read_only};
            cgh.host_task([=] {
                compute_task<L>(n_dims, n_observations, data_of(observations), data_of(weights),
                                data_of(indices), adapter);
            });
        } else if (has_weights) {
            sycl::accessor weights{copy.weights, cgh, sycl::read_only};
            cgh.host_task([=] {
                compute_task<L>(n_dims, n_observations, data_of(observations), data_of(weights),
                                static_cast<const std::int64_t*>(nullptr), adapter);
            });
        } else if (has_indices) {
            sycl::accessor indices{copy.indices, cgh, sycl::read_only};
            cgh.host_task([=] {
                compute_task<L>(n_dims, n_observations, data_of(observations),
                                static_cast<const T*>(nullptr), data_of(indices), adapter);
            });
        } else {
            cgh.host_task([=] {
                compute_task<L>(n_dims, n_observations, data_of(observations),
                                static_cast<const T*>(nullptr),
                                static_cast<const std::int64_t*>(nullptr), adapter);
            });
        }
    });
}

}  // namespace tavrel::qnd::stats::detail::cpu
