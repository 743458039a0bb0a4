// The core library's task entries, dispatcher and routines on tasks built from arbitrary bytes
// within the contract (every array as long as its counts say): any status is an answer, a
// sanitizer report or a crash a finding.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_input.hpp"
#include "qnd_core/ss.h"

namespace {

using routine = std::int32_t (*)(qnd_ss_task*,
                                 std::uint64_t,
                                 std::int64_t,
                                 const qnd_ss_threader_row*);

template <typename T>
void run(fuzz_input& in, std::uint8_t shape) {
    const bool wide = shape & 2, weighted = shape & 4, masked = shape & 8;
    const std::int64_t n_dims = 1 + in.take<std::uint8_t>() % 6;
    const std::int64_t n_obs = 1 + in.take<std::uint8_t>() % 70;
    const std::uint8_t storage_pick = in.take<std::uint8_t>();
    const std::int64_t storage = storage_pick % 8 == 0   ? in.take<std::int32_t>()
                                 : storage_pick % 2 == 0 ? QND_SS_ROW_MAJOR
                                                         : QND_SS_COL_MAJOR;
    const std::uint64_t estimates = in.take<std::uint64_t>();
    const std::uint8_t method_pick = in.take<std::uint8_t>();
    const std::int64_t methods[] = {QND_SS_METHOD_FAST, QND_SS_METHOD_STREAMING,
                                    QND_SS_METHOD_USER_MEAN, in.take<std::int16_t>()};
    const std::int64_t method = methods[method_pick % 4];
    const std::uint32_t outputs = in.take<std::uint32_t>();
    const std::uint8_t entry = in.take<std::uint8_t>();

    const std::int64_t longs[3] = {n_dims, n_obs, storage};
    const std::int32_t shorts[3] = {static_cast<std::int32_t>(n_dims),
                                    static_cast<std::int32_t>(n_obs),
                                    static_cast<std::int32_t>(storage)};
    const void* ints = wide ? static_cast<const void*>(longs) : static_cast<const void*>(shorts);
    const auto* counts = static_cast<const char*>(ints);
    const std::size_t width = wide ? 8 : 4;

    std::vector<T> values(static_cast<std::size_t>(n_dims * n_obs)), weights(n_obs);
    for (T& v : values)
        v = in.take<T>();
    for (T& w : weights)
        w = in.take<std::uint8_t>() % 4 == 0 ? in.take<T>() : T(in.take<std::uint8_t>() % 3);
    std::vector<std::int64_t> mask64(static_cast<std::size_t>(n_dims));
    std::vector<std::int32_t> mask32(static_cast<std::size_t>(n_dims));
    for (std::int64_t d = 0; d < n_dims; ++d)
        mask64[d] = mask32[d] = in.take<std::uint8_t>() % 3;
    const void* indices = !masked ? nullptr
                          : wide  ? static_cast<const void*>(mask64.data())
                                  : static_cast<const void*>(mask32.data());

    qnd_ss_task* task = nullptr;
    std::int32_t status;
    if constexpr (sizeof(T) == 4)
        status = __rtksSSNewTask(&task, counts, counts + width, counts + 2 * width, values.data(),
                                 weighted ? weights.data() : nullptr, indices, wide);
    else
        status = __rtkdSSNewTask(&task, counts, counts + width, counts + 2 * width, values.data(),
                                 weighted ? weights.data() : nullptr, indices, wide);
    if (status != QND_SS_OK)
        return;
    // Every result array as doubles, so that it also holds double results of a float task.
    std::vector<std::vector<double>> results(19, std::vector<double>(n_dims));
    for (auto& r : results)
        for (double& v : r)
            v = in.take<std::int8_t>();
    for (int k = 0; k < 19; ++k)
        if (outputs >> k & 1)
            (sizeof(T) == 4 ? __rtksSSEditTask : __rtkdSSEditTask)(task, 7 + k, results[k].data());
    const std::int32_t double_results = shape & 16;
    if (sizeof(T) == 4 && (shape & 16))
        __rtksSSEditTask(task, QND_SS_ED_DOUBLE_RESULTS, &double_results);

    const routine routines[] = {
        sizeof(T) == 4 ? qnd_ss_compute_s : qnd_ss_compute_d,
        sizeof(T) == 4 ? _rtksSSBasic : _rtkdSSBasic,
        sizeof(T) == 4 ? _rtksSSMinmax : _rtkdSSMinmax,
        sizeof(T) == 4 ? _rtksSSQuantiles : _rtkdSSQuantiles,
    };
    routines[entry % 4](task, estimates, method, nullptr);
    __rtkSSDeleteTask(&task);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzz_input in{bytes, size};
    const std::uint8_t shape = in.take<std::uint8_t>();
    if (shape & 1)
        run<float>(in, shape);
    else
        run<double>(in, shape);
    return 0;
}
