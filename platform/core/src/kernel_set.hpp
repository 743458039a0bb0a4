// The table of block kernels of one instruction set, and the choice among the compiled ones.
#pragma once

#include <cstdint>

#include "moment_sums.hpp"
#include "qnd_core/co_moments.hpp"

namespace qnd_core {

// Every kernel reduces one cache-sized block and returns false, with nothing else defined, when
// a weight of the block is negative or not a number. `order` (1..4) is the highest order of the
// sums wanted: order 1 makes one pass and leaves the block's centre at 0; higher orders make one
// pass around an offered centre when it proves close enough to the block's mean, otherwise a
// second pass over the block, now in cache, around the block's own mean.
template <class T>
struct typed_kernels {
    // n contiguous values of one dimension; w is null or one weight per value. centre, if not
    // null, is a candidate centre (NaN for none), used as the strided kernels use theirs.
    bool (*moments)(
        const T* x, const T* w, int64_t n, int order, const double* centre, moment_sums* out);
    // rows observations of `count` adjacent dimensions, rows apart by ld elements; w is null or
    // one weight per row; out holds count results. centres, if not null, are candidate centres
    // per dimension (NaN for none), used where they keep the sums as accurate as the block's mean.
    bool (*moments_strided)(const T* x,
                            const T* w,
                            int64_t rows,
                            int64_t ld,
                            int64_t count,
                            int order,
                            const double* centres,
                            moment_sums* out);
    bool (*extremes)(const T* x, const T* w, int64_t n, extreme_sums* out);
    bool (*extremes_strided)(
        const T* x, const T* w, int64_t rows, int64_t ld, int64_t count, extreme_sums* out);
    // Co-moment sums of `count` dimensions over `rows` observations of a block: dimension i of
    // row r at x[offsets[i] + r * row_step]; offered (null, or NaN for none) are candidate
    // centres; scratch holds 2 x count x rows doubles and a vector more per dimension.
    bool (*co_moments)(const T* x,
                       const T* w,
                       int64_t rows,
                       int64_t row_step,
                       const int64_t* offsets,
                       int64_t count,
                       const double* offered,
                       double* scratch,
                       co_moment_sums* out);
};

struct kernel_set {
    const char* name;
    typed_kernels<float> f;
    typed_kernels<double> d;
};

extern const kernel_set kernels_sse2;
extern const kernel_set kernels_avx2;
extern const kernel_set kernels_avx512;

// The widest set the processor runs, narrowed by QND_CORE_ISA when that is set.
const kernel_set& active_kernels();

template <class T>
const typed_kernels<T>& kernels_for(const kernel_set& k);
template <>
inline const typed_kernels<float>& kernels_for<float>(const kernel_set& k) {
    return k.f;
}
template <>
inline const typed_kernels<double>& kernels_for<double>(const kernel_set& k) {
    return k.d;
}

}  // namespace qnd_core
