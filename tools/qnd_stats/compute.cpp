// The calls into the library, a chunk at a time, and the exact merge of the chunks' results.
#include "compute.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <tuple>
#include <unistd.h>

#include <tavrel/qnd/partial.hpp>
#include <tavrel/qnd/stats.hpp>

#include "tool_errors.hpp"

namespace qnd_stats {

namespace stats = tavrel::qnd::stats;

namespace {

// Errors of host tasks and kernels arrive here and are rethrown by wait_and_throw.
void rethrow_all(sycl::exception_list errors) {
    for (const std::exception_ptr& e : errors)
        std::rethrow_exception(e);
}

// An array in shared memory, freed at scope end.
template <typename T>
struct usm_array {
    usm_array(sycl::queue& q, std::size_t n) : queue(q) {
        ptr = sycl::malloc_shared<T>(n == 0 ? 1 : n, q);
        if (ptr == nullptr)
            throw std::bad_alloc();
    }
    ~usm_array() { sycl::free(ptr, queue); }
    usm_array(const usm_array&) = delete;
    usm_array& operator=(const usm_array&) = delete;

    sycl::queue& queue;
    T* ptr = nullptr;
};

template <typename T>
chunk_array chunk_of(T* p) {
    chunk_array a;
    if constexpr (std::is_same_v<T, double>)
        a.f64 = p;
    else
        a.f32 = p;
    return a;
}

void wait(sycl::queue& q, sycl::event e) {
    e.wait_and_throw();
    q.wait_and_throw();
}

std::string count_text(double n) {
    return std::to_string(static_cast<std::int64_t>(n));
}

std::string number_text(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}

// Which library calls the asked families need.
struct needs {
    bool mean = false;
    bool raw = false;
    bool central = false;
    bool min = false;
    bool max = false;
};

needs needs_of(const tool_options& o) {
    const std::vector<std::string>& families = o.estimates;
    needs n;
    n.min = n.max = o.histogram;
    for (const std::string& f : families) {
        n.raw = n.raw || f == "raw_sum" || f == "raw_moment";
        n.central = n.central || f == "central_sum" || f == "central_moment" || f == "variation" ||
                    f == "skewness" || f == "kurtosis";
        n.min = n.min || f == "min" || f == "min_max";
        n.max = n.max || f == "max" || f == "min_max";
    }
    for (const std::string& f : families)
        n.mean = n.mean || f == "mean" || f == "raw_moment" || n.central;
    return n;
}

template <typename T>
struct chunk_engine {
    chunk_engine(sycl::queue& q_,
                 data_source& data_,
                 const stats_job& job_,
                 const tool_options& o_,
                 const share& of_,
                 std::int64_t first_row_)
        : q(q_),
          data(data_),
          job(job_),
          o(o_),
          need(needs_of(o_)),
          gpu(q_.get_device().is_gpu()),
          ncol(static_cast<std::size_t>(data_.n_dims)),
          cap(chunk_rows(o_, data_)),
          obs(q_, static_cast<std::size_t>(cap) * ncol),
          weights(q_, weighted(job_) ? static_cast<std::size_t>(cap) : 1),
          out(q_, 12 * ncol),
          of(of_),
          first_row(first_row_) {
        result.columns.resize(ncol);
        if (!job.indices.empty()) {
            indices = std::make_unique<usm_array<std::int64_t>>(q, ncol);
            std::copy(job.indices.begin(), job.indices.end(), indices->ptr);
        }
        std::fill(centre(), centre() + ncol, T(0));
        for (std::size_t d = 0; d < job.columns.size(); ++d)
            centre()[job.columns[d]] = job.user_mean.empty() ? T(0) : T(job.user_mean[d]);
        if (!job.weights_file.empty()) {
            tool_options w;
            w.raw_float32 = o.raw_float32;
            w.raw_dims = 1;
            weight_source = open_source(job.weights_file, w);
            if (weight_source->n_dims != 1)
                throw input_error(job.weights_file + ": " + std::to_string(weight_source->n_dims) +
                                  " columns; a weights file has one");
            // The weights of the observations of the shares before this one.
            for (std::int64_t left = first_row; left > 0 && !weights_short;) {
                const std::int64_t got =
                    weight_source->read(chunk_of(weights.ptr), std::min(left, cap));
                weights_short = got == 0;
                left -= got;
            }
        }
    }

    // Outputs of the library, one array of ncol each.
    T* mean() { return out.ptr; }
    T* mean2() { return out.ptr + ncol; }
    T* s(int k) { return out.ptr + (1 + k) * ncol; }   // k from 1 to 4
    T* cs(int k) { return out.ptr + (4 + k) * ncol; }  // k from 2 to 4
    T* mn() { return out.ptr + 9 * ncol; }
    T* mx() { return out.ptr + 10 * ncol; }
    T* centre() { return out.ptr + 11 * ncol; }

    bool column_kept(std::size_t c) const { return job.indices.empty() || job.indices[c] != 0; }
    std::size_t at(std::size_t c, std::size_t i, std::size_t rows) const {
        return data.row_major ? c * rows + i : i * ncol + c;
    }

    // Once the weights run out, the rest of the observations are only counted: the counts of
    // all processes make the error.
    partial_results run() {
        while (const std::int64_t r = data.read(chunk_of(obs.ptr), cap)) {
            if (!weights_short && bins)
                count_bins(r);
            else if (!weights_short)
                chunk(r);
            result.n_observations += static_cast<double>(r);
        }
        // The last share counts the weights that no observation has.
        if (weight_source && !weights_short && of.rank + 1 == of.size)
            while (const std::int64_t r = weight_source->read(chunk_of(weights.ptr), cap))
                result.n_weights += static_cast<double>(r);
        return std::move(result);
    }

    std::string weight_where() const {
        if (!job.weights_file.empty())
            return job.weights_file;
        return data.path + ", column " + std::to_string(job.weight_column + 1);
    }

    void chunk(std::int64_t r) {
        stats::partial<double> base;
        base.w = base.w2 = static_cast<double>(r);
        std::int64_t n = r;
        if (weighted(job)) {
            bool zeros = false;
            if (!load_weights(r, base, zeros))
                return;
            if (!(base.w > 0))
                return;  // nothing of this chunk counts
            // A GPU counts a weight of 0 as 1: such observations are taken out first.
            if (gpu && zeros)
                n = drop_unweighted(r);
        }
        if (data.row_major)
            o.method == 2 ? calls<2, stats::row_major>(n) : calls<1, stats::row_major>(n);
        else
            o.method == 2 ? calls<2, stats::col_major>(n) : calls<1, stats::col_major>(n);

        for (std::size_t c = 0; c < ncol; ++c) {
            if (!column_kept(c))
                continue;
            stats::partial<double> p = base;
            p.mean = need.mean ? mean()[c] : 0;
            if (need.central && gpu && job.user_mean.empty())
                p.mean += mean2()[c];
            if (need.raw)
                std::tie(p.s1, p.s2, p.s3, p.s4) = std::tuple(s(1)[c], s(2)[c], s(3)[c], s(4)[c]);
            if (need.central)
                std::tie(p.cs2, p.cs3, p.cs4) = std::tuple(cs(2)[c], cs(3)[c], cs(4)[c]);
            if (need.min)
                p.min = mn()[c];
            if (need.max)
                p.max = mx()[c];
            auto& total = result.columns[c];
            total = job.user_mean.empty() ? stats::merge(total, p)
                                          : stats::merge_about_centre(total, p);
        }
    }

    void count_bins(std::int64_t r) {
        stats::partial<double> unused;
        bool zeros = false;
        if (weighted(job) && !load_weights(r, unused, zeros))
            return;
        const auto rows = static_cast<std::size_t>(r);
        for (std::size_t c = 0; c < ncol; ++c) {
            histogram& h = (*bins)[c];
            if (h.bins.empty())
                continue;
            const std::size_t last = h.bins.size() - 1;
            // Halves, so that a range as wide as double's does not overflow.
            const double half_span = h.high * 0.5 - h.low * 0.5;
            const double scale = half_span > 0 ? static_cast<double>(h.bins.size()) / half_span : 0;
            for (std::size_t i = 0; i < rows; ++i) {
                const double w = weighted(job) ? static_cast<double>(weights.ptr[i]) : 1.0;
                const double x = obs.ptr[at(c, i, rows)];
                if (!(w > 0) || !(x >= h.low && x <= h.high))
                    continue;
                const double t = (x * 0.5 - h.low * 0.5) * scale;
                h.bins[std::min(static_cast<std::size_t>(t), last)] += w;
            }
        }
    }

    // False when the weights file ends within the chunk.
    bool load_weights(std::int64_t r, stats::partial<double>& base, bool& zeros) {
        T* w = weights.ptr;
        const auto rows = static_cast<std::size_t>(r);
        if (job.weight_column >= 0) {
            const auto wc = static_cast<std::size_t>(job.weight_column);
            for (std::size_t i = 0; i < rows; ++i)
                w[i] = obs.ptr[at(wc, i, rows)];
        } else {
            const std::int64_t got = weight_source->read(chunk_of(w), r);
            result.n_weights += static_cast<double>(got);
            if (got < r) {
                weights_short = true;
                return false;
            }
        }
        base.w = base.w2 = 0;
        for (std::size_t i = 0; i < rows; ++i) {
            const double v = w[i];
            if (!std::isfinite(v) || v < 0)
                throw input_error(
                    weight_where() + ", observation " +
                    observation_name(static_cast<std::int64_t>(result.n_observations) + 1 +
                                     static_cast<std::int64_t>(i)) +
                    ": the weight " + number_text(v) + " is " +
                    (std::isfinite(v) ? "negative" : "not a finite number") +
                    " (weights are finite, 0 or more)");
            base.w += v;
            base.w2 += v * v;
            zeros = zeros || v == 0;
        }
        result.weight_total += base.w;
        return true;
    }

    // An observation by its number from 1 in the file, or in this process's share when the
    // shares before it have not been counted.
    std::string observation_name(std::int64_t in_share) const {
        if (first_row >= 0)
            return std::to_string(first_row + in_share);
        return std::to_string(in_share) + " of the share of process " + std::to_string(of.rank);
    }

    // Moves the observations of positive weight to the front, in order. Returns their number.
    std::int64_t drop_unweighted(std::int64_t r) {
        T* w = weights.ptr;
        T* x = obs.ptr;
        const auto rows = static_cast<std::size_t>(r);
        std::size_t kept_rows = 0;
        for (std::size_t i = 0; i < rows; ++i)
            kept_rows += w[i] != 0;
        for (std::size_t c = 0; c < ncol; ++c) {
            std::size_t k = 0;
            for (std::size_t i = 0; i < rows; ++i)
                if (w[i] != 0)
                    x[at(c, k++, kept_rows)] = x[at(c, i, rows)];
        }
        std::size_t k = 0;
        for (std::size_t i = 0; i < rows; ++i)
            if (w[i] != 0)
                w[k++] = w[i];
        return static_cast<std::int64_t>(kept_rows);
    }

    template <int M, stats::layout L>
    void calls(std::int64_t n) {
        const stats::dataset<L, T*> d(static_cast<std::int64_t>(ncol), n, obs.ptr,
                                      weighted(job) ? weights.ptr : nullptr,
                                      indices ? indices->ptr : nullptr);
        if (need.raw)
            wait(q, stats::raw_sum<M, T, L>(q, d, s(1), s(2), s(3), s(4)));
        if (need.min && need.max)
            wait(q, stats::min_max<1, T, L>(q, d, mn(), mx()));
        else if (need.min)
            wait(q, stats::min<1, T, L>(q, d, mn()));
        else if (need.max)
            wait(q, stats::max<1, T, L>(q, d, mx()));
        if (need.mean || (gpu && (need.min || need.max)))
            wait(q, stats::mean<M, T, L>(q, d, mean()));
        if (gpu && (need.min || need.max))
            recompute_extremes<L>(d);
        if (!need.central)
            return;
        if (!job.user_mean.empty()) {
            wait(q, stats::central_sum<1, T, L>(q, centre(), d, cs(2), cs(3), cs(4)));
        } else if (!gpu) {
            wait(q, stats::central_sum<M, T, L>(q, d, cs(2), cs(3), cs(4)));
        } else {
            // Second pass: the deviations from the first mean, whose own mean and central sums
            // carry the digits that the first mean's rounding lost.
            const auto rows = static_cast<std::size_t>(n);
            for (std::size_t c = 0; c < ncol; ++c)
                if (column_kept(c))
                    for (std::size_t i = 0; i < rows; ++i)
                        obs.ptr[at(c, i, rows)] -= mean()[c];
            wait(q, stats::mean<1, T, L>(q, d, mean2()));
            wait(q, stats::central_sum<1, T, L>(q, mean2(), d, cs(2), cs(3), cs(4)));
        }
    }

    // The GPU seeds the minimum with the largest finite value and clamps the maximum at the
    // smallest positive normal one, and its comparisons pass over a NaN: a result equal to a
    // seed or clamp, or of a dimension whose mean is NaN, may be wrong and is computed again
    // on the CPU.
    template <stats::layout L>
    void recompute_extremes(const stats::dataset<L, T*>& d) {
        std::vector<std::int64_t> redo(ncol, 0);
        bool any = false;
        for (std::size_t c = 0; c < ncol; ++c) {
            if (!column_kept(c))
                continue;
            redo[c] = (need.min && mn()[c] == std::numeric_limits<T>::max()) ||
                      (need.max && mx()[c] == std::numeric_limits<T>::min()) ||
                      std::isnan(mean()[c]);
            any = any || redo[c];
        }
        if (!any)
            return;
        if (!cpu)
            cpu.emplace(sycl::cpu_selector_v, rethrow_all);
        const auto values = static_cast<std::size_t>(d.n_observations) * ncol;
        usm_array<T> x(*cpu, values);
        usm_array<T> w(*cpu, static_cast<std::size_t>(d.n_observations));
        usm_array<std::int64_t> ix(*cpu, ncol);
        usm_array<T> a(*cpu, ncol);
        usm_array<T> b(*cpu, ncol);
        std::copy(obs.ptr, obs.ptr + values, x.ptr);
        if (d.weights)
            std::copy(d.weights, d.weights + d.n_observations, w.ptr);
        std::copy(redo.begin(), redo.end(), ix.ptr);
        const stats::dataset<L, T*> on_cpu(d.n_dims, d.n_observations, x.ptr,
                                           d.weights ? w.ptr : nullptr, ix.ptr);
        wait(*cpu, stats::min_max<1, T, L>(*cpu, on_cpu, a.ptr, b.ptr));
        for (std::size_t c = 0; c < ncol; ++c)
            if (redo[c]) {
                mn()[c] = a.ptr[c];
                mx()[c] = b.ptr[c];
            }
    }

    sycl::queue& q;
    data_source& data;
    const stats_job& job;
    const tool_options& o;
    needs need;
    bool gpu;
    std::size_t ncol;
    std::int64_t cap;
    usm_array<T> obs;
    usm_array<T> weights;
    usm_array<T> out;
    std::unique_ptr<usm_array<std::int64_t>> indices;
    std::unique_ptr<data_source> weight_source;
    std::optional<sycl::queue> cpu;
    share of;
    std::int64_t first_row;  // of the share in the file; -1 when not counted
    bool weights_short = false;
    partial_results result;
    std::vector<histogram>* bins = nullptr;  // set for the pass that counts them
};

}  // namespace

std::vector<quantity> finish_results(const stats_job& job,
                                     const partial_results& all,
                                     const tool_options& o) {
    if (all.n_observations == 0)
        throw input_error(job.path + ": no observations");
    if (!job.weights_file.empty() && all.n_weights != all.n_observations)
        throw input_error(job.weights_file + ": " + count_text(all.n_weights) + " weights for " +
                          count_text(all.n_observations) + " observations");
    if (weighted(job) && !(all.weight_total > 0))
        throw input_error((job.weights_file.empty()
                               ? job.path + ", column " + std::to_string(job.weight_column + 1)
                               : job.weights_file) +
                          ": every weight is 0, so no observation counts");
    std::vector<quantity> rows;
    const std::size_t dims = job.columns.size();
    auto add = [&](const char* name, auto value) {
        quantity qy{name, std::vector<double>(dims, std::numeric_limits<double>::quiet_NaN())};
        for (std::size_t d = 0; d < dims; ++d) {
            const auto c = static_cast<std::size_t>(job.columns[d]);
            if (!kept(job, d))
                continue;
            const stats::partial<double>& p = all.columns[c];
            const double centre = job.user_mean.empty() ? p.mean : job.user_mean[d];
            qy.values[d] = value(p, stats::finish(p, centre));
            if (o.use_float)  // results in float, whatever the merge was carried out in
                qy.values[d] = static_cast<float>(qy.values[d]);
        }
        rows.push_back(std::move(qy));
    };
    using P = const stats::partial<double>&;
    using F = const stats::finished<double>&;
    for (const std::string& f : o.estimates) {
        if (f == "mean")
            add("mean", [](P, F e) { return e.mean; });
        if (f == "raw_sum") {
            add("s1", [](P p, F) { return p.s1; });
            add("s2", [](P p, F) { return p.s2; });
            add("s3", [](P p, F) { return p.s3; });
            add("s4", [](P p, F) { return p.s4; });
        }
        if (f == "raw_moment") {
            add("r1", [](P, F e) { return e.mean; });
            add("r2", [](P, F e) { return e.r2; });
            add("r3", [](P, F e) { return e.r3; });
            add("r4", [](P, F e) { return e.r4; });
        }
        if (f == "central_sum") {
            add("cs2", [](P p, F) { return p.cs2; });
            add("cs3", [](P p, F) { return p.cs3; });
            add("cs4", [](P p, F) { return p.cs4; });
        }
        if (f == "central_moment") {
            add("c2", [](P, F e) { return e.c2; });
            add("c3", [](P, F e) { return e.c3; });
            add("c4", [](P, F e) { return e.c4; });
        }
        if (f == "variation")
            add("variation", [](P, F e) { return e.variation; });
        if (f == "skewness")
            add("skewness", [](P, F e) { return e.skewness; });
        if (f == "kurtosis")
            add("kurtosis", [](P, F e) { return e.kurtosis; });
        if (f == "min" || f == "min_max")
            add("min", [](P p, F) { return p.min; });
        if (f == "max" || f == "min_max")
            add("max", [](P p, F) { return p.max; });
    }
    return rows;
}

partial_results compute(sycl::queue& queue,
                        data_source& data,
                        const stats_job& job,
                        const tool_options& options,
                        const share& of,
                        std::int64_t first_row) {
    if (options.use_float)
        return chunk_engine<float>(queue, data, job, options, of, first_row).run();
    return chunk_engine<double>(queue, data, job, options, of, first_row).run();
}

std::vector<histogram> histogram_ranges(const stats_job& job,
                                        const std::vector<double>& min_max,
                                        std::int64_t bins) {
    std::vector<histogram> h(min_max.size() / 2);
    for (std::size_t c = 0; c < h.size(); ++c) {
        h[c].low = min_max[2 * c];
        h[c].high = min_max[2 * c + 1];
        // The mask also leaves out the weight column; a column without observations has no range.
        const bool kept = job.indices.empty() || job.indices[c] != 0;
        if (kept && std::isfinite(h[c].low) && std::isfinite(h[c].high))
            h[c].bins.assign(static_cast<std::size_t>(bins), 0.0);
    }
    return h;
}

std::vector<histogram> count_histograms(sycl::queue& queue,
                                        data_source& data,
                                        const stats_job& job,
                                        const tool_options& options,
                                        std::vector<histogram> ranges,
                                        const share& of,
                                        std::int64_t first_row) {
    tool_options o = options;
    o.estimates.clear();
    o.histogram = false;
    if (options.use_float) {
        chunk_engine<float> e(queue, data, job, o, of, first_row);
        e.bins = &ranges;
        e.run();
    } else {
        chunk_engine<double> e(queue, data, job, o, of, first_row);
        e.bins = &ranges;
        e.run();
    }
    return ranges;
}

void merge_into(partial_results& a, const partial_results& b, bool about_centre) {
    for (std::size_t c = 0; c < a.columns.size(); ++c)
        a.columns[c] = about_centre ? stats::merge_about_centre(a.columns[c], b.columns[c])
                                    : stats::merge(a.columns[c], b.columns[c]);
    a.n_observations += b.n_observations;
    a.n_weights += b.n_weights;
    a.weight_total += b.weight_total;
}

std::int64_t chunk_rows(const tool_options& o, const data_source& data) {
    const auto row_bytes = static_cast<std::uint64_t>(std::max<std::int64_t>(data.n_dims, 1)) * 8;
    std::int64_t rows = o.chunk_rows;
    if (rows == 0) {
        const long pages = sysconf(_SC_PHYS_PAGES);
        const long page = sysconf(_SC_PAGE_SIZE);
        const std::uint64_t memory = pages > 0 && page > 0 ? static_cast<std::uint64_t>(pages) *
                                                                 static_cast<std::uint64_t>(page)
                                                           : std::uint64_t(1) << 30;
        const std::uint64_t bytes = std::clamp<std::uint64_t>(memory / 32, std::uint64_t(16) << 20,
                                                              std::uint64_t(256) << 20);
        rows = static_cast<std::int64_t>(std::max<std::uint64_t>(1, bytes / row_bytes));
    }
    if (data.total >= 0)
        rows = std::min(rows, data.total);
    std::uint64_t bytes = 0;
    if (__builtin_mul_overflow(static_cast<std::uint64_t>(rows), row_bytes, &bytes) ||
        bytes > (std::uint64_t(1) << 62))
        throw input_error("--chunk-rows: " + std::to_string(rows) + " observations of " +
                          std::to_string(data.n_dims) + " dimensions do not fit in memory");
    return std::max<std::int64_t>(rows, 1);
}

sycl::queue make_queue(device_choice device, int index) {
    try {
        if (device == device_choice::gpu) {
            const auto gpus = sycl::device::get_devices(sycl::info::device_type::gpu);
            if (gpus.size() > 1)
                return sycl::queue(gpus[static_cast<std::size_t>(index) % gpus.size()],
                                   rethrow_all);
            return sycl::queue(sycl::gpu_selector_v, rethrow_all);
        }
        return sycl::queue(sycl::cpu_selector_v, rethrow_all);
    } catch (const sycl::exception& e) {
        throw input_error(std::string("no ") + (device == device_choice::gpu ? "GPU" : "CPU") +
                          " device: " + e.what());
    }
}

}  // namespace qnd_stats
