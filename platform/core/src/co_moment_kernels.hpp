// The block kernel of co-moments, written once over the vector width of the including unit (see
// block_kernels.hpp, which includes it inside its per-set namespace).
#pragma once

// Deviations of a block's dimensions from their centres, dimension by dimension in `dev` (rows
// padded with zeros to whole vectors), and in `wdev` the weighted ones (wdev is dev without
// weights). Rows of weight 0 are zeros in both, so that a NaN there leaves no trace.
template <class T>
void block_deviations(const T* x,
                      const T* w,
                      int64_t rows,
                      int64_t padded,
                      int64_t row_step,
                      const int64_t* offsets,
                      int64_t count,
                      const double* c,
                      double* dev,
                      double* wdev) {
    const int64_t nv = row_step == 1 ? rows - rows % lanes : 0;
    for (int64_t i = 0; i < count; ++i) {
        double* d = dev + i * padded;
        const T* xi = x + offsets[i];
        const vdouble cv = splat(c[i]);
        for (int64_t k = 0; k < nv; k += lanes) {
            // The next block of this dimension follows at once, on a page of its own that the
            // hardware would not fetch ahead.
            __builtin_prefetch(xi + k + rows, 0, 3);
            const vdouble v = load_wide(xi + k) - cv;
            std::memcpy(d + k, &v, sizeof v);
        }
        for (int64_t k = nv; k < rows; ++k) {
            d[k] = static_cast<double>(xi[k * row_step]) - c[i];
        }
        for (int64_t k = rows; k < padded; ++k) {
            d[k] = 0;
        }
        if (w != nullptr) {
            double* e = wdev + i * padded;
            for (int64_t k = 0; k < rows; ++k) {
                const double wk = static_cast<double>(w[k]);
                d[k] = wk > 0 ? d[k] : 0.0;
                e[k] = wk * d[k];
            }
            for (int64_t k = rows; k < padded; ++k) {
                e[k] = 0;
            }
        }
    }
}

// Stores the sum of a vector accumulator at (i, j) and (j, i) when i <= j.
inline void store_pair(co_moment_sums* out, int64_t count, int64_t i, int64_t j, vdouble a) {
    if (i <= j) {
        out->cross[i * count + j] = out->cross[j * count + i] = lane_sum(a);
    }
}

// d1_i = sum of wdev_i, and cross_ij = dev_i . wdev_j for i <= j, mirrored: tiles of two rows of
// the upper triangle by four columns, eight independent sums in registers (enough chains to hide
// the latency of the multiply-adds), six loads for eight of them.
inline void block_products(
    const double* dev, const double* wdev, int64_t padded, int64_t count, co_moment_sums* out) {
    for (int64_t i = 0; i < count; ++i) {
        const double* ei = wdev + i * padded;
        vdouble s = {};
        for (int64_t k = 0; k < padded; k += lanes) {
            s += load_wide(ei + k);
        }
        out->d1[i] = lane_sum(s);
    }
    for (int64_t i = 0; i < count; i += 2) {
        // An odd last row pairs with itself; its duplicate sums are not stored.
        const int64_t i1 = i + 1 < count ? i + 1 : i;
        const double* d0 = dev + i * padded;
        const double* d1 = dev + i1 * padded;
        int64_t j = i;
        for (; j + 4 <= count; j += 4) {
            const double* e = wdev + j * padded;
            vdouble a[2][4] = {};
            for (int64_t k = 0; k < padded; k += lanes) {
                const vdouble x0 = load_wide(d0 + k), x1 = load_wide(d1 + k);
#pragma GCC unroll 4
                for (int t = 0; t < 4; ++t) {
                    const vdouble y = load_wide(e + t * padded + k);
                    a[0][t] += x0 * y;
                    a[1][t] += x1 * y;
                }
            }
            for (int t = 0; t < 4; ++t) {
                store_pair(out, count, i, j + t, a[0][t]);
                store_pair(out, count, i1, j + t, a[1][t]);
            }
        }
        for (; j < count; ++j) {
            const double* e = wdev + j * padded;
            vdouble a0 = {}, a1 = {};
            for (int64_t k = 0; k < padded; k += lanes) {
                const vdouble y = load_wide(e + k);
                a0 += load_wide(d0 + k) * y;
                a1 += load_wide(d1 + k) * y;
            }
            store_pair(out, count, i, j, a0);
            store_pair(out, count, i1, j, a1);
        }
    }
}

// rows observations of `count` dimensions; dimension i of row r is x[offsets[i] + r * row_step]
// and w is null or one weight per row. One pass around the offered centres when they lie within
// an eighth of a standard deviation of every block mean, otherwise a second around the block's
// means, from cache. scratch holds 2 x count x rows rounded up to whole vectors.
template <class T>
bool co_moments(const T* x,
                const T* w,
                int64_t rows,
                int64_t row_step,
                const int64_t* offsets,
                int64_t count,
                const double* offered,
                double* scratch,
                co_moment_sums* out) {
    const int64_t padded = (rows + lanes - 1) / lanes * lanes;
    double sw = static_cast<double>(rows), sw2 = sw;
    if (w != nullptr) {
        sw = sw2 = 0;
        for (int64_t k = 0; k < rows; ++k) {
            const double wk = static_cast<double>(w[k]);
            if (!(wk >= 0)) {
                return false;
            }
            sw += wk;
            sw2 += wk * wk;
        }
    }
    *out = co_moment_sums(count);
    if (sw == 0) {
        return true;
    }
    out->w = sw;
    out->w2 = sw2;
    double* dev = scratch;
    double* wdev = w == nullptr ? dev : scratch + count * padded;
    std::vector<double> c(count);
    bool have_centre = offered != nullptr;
    for (int64_t i = 0; have_centre && i < count; ++i) {
        have_centre = offered[i] == offered[i];
    }
    if (have_centre) {
        block_deviations(x, w, rows, padded, row_step, offsets, count, offered, dev, wdev);
        block_products(dev, wdev, padded, count, out);
        bool close = true;
        for (int64_t i = 0; i < count; ++i) {
            close = close && 64 * out->d1[i] * out->d1[i] <= out->cross[i * count + i] * sw;
            c[i] = offered[i] + out->d1[i] / sw;
        }
        if (close) {
            out->centre.assign(offered, offered + count);
            return true;
        }
    } else {
        for (int64_t i = 0; i < count; ++i) {
            double s = 0;
            for (int64_t k = 0; k < rows; ++k) {
                const double wk = w == nullptr ? 1.0 : static_cast<double>(w[k]);
                s += wk > 0 ? wk * static_cast<double>(x[offsets[i] + k * row_step]) : 0.0;
            }
            c[i] = s / sw;
        }
    }
    block_deviations(x, w, rows, padded, row_step, offsets, count, c.data(), dev, wdev);
    block_products(dev, wdev, padded, count, out);
    out->centre = c;
    return true;
}
