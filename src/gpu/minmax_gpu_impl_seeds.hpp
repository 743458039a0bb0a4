// The two limits of the extreme kernels per element type, and the clamps that every stored
// extreme goes through.
#pragma once

#include <limits>

namespace tavrel::qnd::stats::detail::gpu {

// min_seed is the largest finite value. max_seed is the smallest positive normal value, not the
// most negative one: a maximum that never rises above it comes out as max_seed itself, so the
// maximum of data without a positive normal value is that constant. This is how the engine
// behaves and it stays so.
template <typename T>
struct minmax_seeds {
    static constexpr T min_seed = std::numeric_limits<T>::max();
    static constexpr T max_seed = std::numeric_limits<T>::min();
};

// Ordered comparisons: a result that is not a number, or +inf for a minimum, gives the seed.
template <typename T>
inline T clamp_min(T value) {
    return value < minmax_seeds<T>::min_seed ? value : minmax_seeds<T>::min_seed;
}

// Ordered comparisons: a result that is not a number, -inf, or anything at or below max_seed
// gives max_seed.
template <typename T>
inline T clamp_max(T value) {
    return value > minmax_seeds<T>::max_seed ? value : minmax_seeds<T>::max_seed;
}

}  // namespace tavrel::qnd::stats::detail::gpu
