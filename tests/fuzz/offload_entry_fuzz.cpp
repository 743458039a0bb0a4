// The eight offload entry points, through the offload runtime's double, on statistics tasks built
// from arbitrary bytes within the contract (arrays device-accessible and as long as their counts
// say, a 32-bit dimension mask padded to whole 64-bit words), on emulated GPUs of two group sizes.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include <sycl/sycl.hpp>

#include "cpu/ss_task.hpp"
#include "fuzz_input.hpp"
#include "omptarget_double_sycl.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/offload.h"

namespace {

using qnd_test::usm_array;
using tavrel::qnd::stats::detail::cpu::ss_task;

template <typename T>
void run(sycl::queue& q, fuzz_input& in, std::uint8_t shape) {
    const bool wide = shape & 4, fortran = shape & 8, weighted = shape & 16, masked = shape & 32;
    const std::int64_t n_dims = static_cast<std::int64_t>(in.take<std::uint8_t>() % 8) - 1;
    const std::int64_t n_obs = static_cast<std::int64_t>(in.take<std::uint16_t>() % 602) - 1;
    const std::uint8_t storage_pick = in.take<std::uint8_t>();
    const std::int64_t storage = storage_pick % 8 == 0 ? in.take<std::int32_t>()
                                 : storage_pick % 2    ? 65536
                                                       : 131072;
    const std::uint64_t estimates = in.take<std::uint64_t>();
    const std::uint8_t method_pick = in.take<std::uint8_t>();
    const std::int64_t method = method_pick % 4 == 0   ? 256
                                : method_pick % 4 == 3 ? in.take<std::int16_t>()
                                                       : 1;
    // As documented, a group writes some arrays whenever it runs, which a caller who asks for
    // any of the group gives: a raw group its order 1 (the mean, the raw sum of order 1); a
    // central group its order 2, and with method 1 the mean and the raw moments as well.
    std::uint32_t nulls = in.take<std::uint32_t>();
    if (estimates & 0xFu)
        nulls &= ~1u;
    if (estimates & 0x1E000000u)
        nulls &= ~(1u << 7);
    for (const auto& [bits, order2] : {std::pair{0x70ull, 4}, std::pair{0xE0000000ull, 11}})
        if (estimates & bits)
            nulls &= ~(1u << order2) & (method == 1 ? ~0xFu : ~0u);

    const std::size_t dims = n_dims > 0 ? static_cast<std::size_t>(n_dims) : 1;
    const std::size_t obs = n_obs > 0 ? static_cast<std::size_t>(n_obs) : 1;
    usm_array<T> values(q, dims * obs), weights(q, obs), results(q, 19 * dims);
    usm_array<std::int64_t> mask64(q, dims);
    usm_array<std::int32_t> mask32(q, (dims + 1) / 2 * 2);
    for (std::size_t i = 0; i < dims * obs; ++i)
        values[i] = in.take<T>();
    for (std::size_t i = 0; i < obs; ++i)
        weights[i] =
            in.take<std::uint8_t>() % 4 == 0 ? in.take<T>() : T(in.take<std::uint8_t>() % 3);
    for (std::size_t d = 0; d < mask32.size(); ++d)
        mask32[d] =
            static_cast<std::int32_t>(d < dims ? (mask64[d] = in.take<std::uint8_t>() % 3) : 0);
    for (std::size_t i = 0; i < results.size(); ++i)
        results[i] = in.take<std::int8_t>();

    const std::int64_t longs[3] = {n_dims, n_obs, storage};
    const std::int32_t shorts[3] = {static_cast<std::int32_t>(n_dims),
                                    static_cast<std::int32_t>(n_obs),
                                    static_cast<std::int32_t>(storage)};
    ss_task task{};
    task.int_width = wide;
    task.dims_ptr = wide ? static_cast<const void*>(&longs[0]) : &shorts[0];
    task.observations_count_ptr = wide ? static_cast<const void*>(&longs[1]) : &shorts[1];
    task.storage_ptr = wide ? static_cast<const void*>(&longs[2]) : &shorts[2];
    task.observations = values.get();
    task.weights = weighted ? weights.get() : nullptr;
    task.indices = !masked ? nullptr : wide ? static_cast<const void*>(mask64.get()) : mask32.get();
    for (std::size_t f = 0; f < 19; ++f) {
        void* const at = nulls >> f & 1 ? nullptr : results.get() + f * dims;
        std::memcpy(reinterpret_cast<char*>(&task) + offsetof(ss_task, mean) + f * sizeof at, &at,
                    sizeof at);
    }

    const omptarget_double::interop_ptr interop = omptarget_double::sycl_interop(&q);
    void* record = &task;
    std::int64_t method64 = method;
    std::uint64_t mask = estimates;
    const auto narrow = static_cast<std::int32_t>(method);
    constexpr bool s = sizeof(T) == 4;
    if (wide && fortran)
        (s ? qnd_rtk_ssscompute_omp_offload : qnd_rtk_dsscompute_omp_offload)(
            &record, &mask, &method64, interop.get());
    else if (wide)
        (s ? qnd_rtk_sSSCompute_omp_offload_ilp64 : qnd_rtk_dSSCompute_omp_offload_ilp64)(
            record, estimates, method, interop.get());
    else if (fortran)
        (s ? qnd_rtk_ssscompute_omp_offload_lp64 : qnd_rtk_dsscompute_omp_offload_lp64)(
            &record, &mask, &narrow, interop.get());
    else
        (s ? qnd_rtk_sSSCompute_omp_offload_lp64 : qnd_rtk_dSSCompute_omp_offload_lp64)(
            record, estimates, narrow, interop.get());
    // A group's last launch may still run on return: the caller syncs with the interop's queue.
    q.wait();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static sycl::queue gpus[2] = {sycl::queue(sycl::gpu_selector_v),
                                  sycl::queue(sycl::ext::hostsycl::make_gpu_device(4))};
    fuzz_input in{bytes, size};
    const std::uint8_t shape = in.take<std::uint8_t>();
    sycl::queue& q = gpus[shape >> 6 & 1];
    if (shape & 1)
        run<float>(q, in, shape);
    else
        run<double>(q, in, shape);
    return 0;
}
