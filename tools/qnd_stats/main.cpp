// qnd-stats: summary statistics of each dimension of a data file, computed by the library; under
// mpirun, several processes each describe a share of the file and their results are merged.
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <string>

#include <sycl/sycl.hpp>
#include <tavrel/qnd/exceptions.hpp>

#include "byte_input.hpp"
#include "compute.hpp"
#include "data_source.hpp"
#include "processes.hpp"
#include "report.hpp"
#include "tool_errors.hpp"

#ifndef QND_STATS_VERSION
#define QND_STATS_VERSION "unknown"
#endif

namespace {

using namespace qnd_stats;

// Runs one step of the program, turning what it throws into an exit status and a message.
template <typename Step>
void attempt(int& status, std::string& message, Step&& step) {
    if (status != 0)
        return;
    try {
        step();
    } catch (const usage_error& e) {
        status = 2, message = e.what();
    } catch (const input_error& e) {
        status = 1, message = e.what();
    } catch (const tavrel::qnd::exception& e) {
        status = 1, message = e.what();
    } catch (const sycl::exception& e) {
        status = 1, message = std::string("SYCL error: ") + e.what();
    } catch (const std::bad_alloc&) {
        status = 1, message = "out of memory";
    } catch (const std::exception& e) {
        status = 1, message = e.what();
    }
}

int fail(const std::string& text, int status) {
    std::fprintf(stderr, "qnd-stats: %s\n", text.c_str());
    return status;
}

// The observations of this share, counted by reading it once (text shares only).
std::int64_t count_rows(const std::string& path, const tool_options& o, const share& of) {
    const auto s = open_source(path, o, of);
    std::vector<double> scratch(static_cast<std::size_t>(std::max<std::int64_t>(s->n_dims, 1)) *
                                4096);
    std::int64_t n = 0;
    while (const std::int64_t r = s->read({scratch.data()}, 4096))
        n += r;
    return n;
}

}  // namespace

int main(int argc, char** argv) {
    processes all(argc, argv);
    const bool first = all.of.rank == 0;
    int status = 0;
    std::string message;
    tool_options options;
    attempt(status, message, [&] { options = parse_options(argc, argv); });
    if (status == 0 && (options.help || options.version)) {
        if (first && options.help)
            std::fputs(help_text().c_str(), stdout);
        if (first && options.version)
            std::printf("qnd-stats %s\n", QND_STATS_VERSION);
        return 0;
    }

    // Each process opens its share and its device; all learn whether any could not.
    std::unique_ptr<data_source> data;
    stats_job job;
    std::unique_ptr<sycl::queue> queue;
    std::int64_t share_rows = 0;
    std::uint64_t input_start = 0;
    attempt(status, message, [&] {
        if (options.histogram && options.file == "-")
            input_start = rereadable_standard_input();
        data = open_source(options.file, options, all.of);
        job = prepare_job(*data, options);
        queue = std::make_unique<sycl::queue>(make_queue(options.device, all.local_rank));
        if (all.of.size > 1 && !job.weights_file.empty())
            share_rows = data->total >= 0 ? data->total : count_rows(options.file, options, all.of);
    });
    bool speaks = false;
    status = all.agree(status, speaks);
    if (status != 0)
        return speaks ? fail(message, status) : status;

    // A weights file is read from the first observation of this share.
    std::int64_t first_row = data->first_row;
    if (all.of.size > 1 && !job.weights_file.empty())
        first_row = all.rows_before(share_rows);
    partial_results mine;
    attempt(status, message,
            [&] { mine = compute(*queue, *data, job, options, all.of, first_row); });
    status = all.agree(status, speaks);
    if (status != 0)
        return speaks ? fail(message, status) : status;

    all.merge(mine, !job.user_mean.empty());

    // The bins need the range of the whole: a second pass once every process knows it.
    std::vector<histogram> bins;
    if (options.histogram) {
        std::vector<double> min_max;
        for (const auto& c : mine.columns)
            min_max.insert(min_max.end(), {c.min, c.max});
        all.broadcast(min_max);
        attempt(status, message, [&] {
            if (options.file == "-")
                rewind_standard_input(input_start);
            const auto again = open_source(options.file, options, all.of);
            bins =
                count_histograms(*queue, *again, job, options,
                                 histogram_ranges(job, min_max, options.bins), all.of, first_row);
        });
        status = all.agree(status, speaks);
        if (status != 0)
            return speaks ? fail(message, status) : status;
        all.add_up(bins);
    }
    std::string report;
    if (first)
        attempt(status, message, [&] {
            const std::vector<quantity> results = finish_results(job, mine, options);
            job.n_observations = static_cast<std::int64_t>(mine.n_observations);
            const report_context context{options.file,
                                         queue->get_device().get_info<sycl::info::device::name>(),
                                         options.use_float, bins};
            report = format_report(context, job, results, options.output);
        });
    status = all.status_of_first(status);
    if (!first)
        return status;
    if (status != 0)
        return fail(message, status);
    if (std::fwrite(report.data(), 1, report.size(), stdout) != report.size() ||
        std::fflush(stdout) != 0)
        return fail("cannot write the results", 1);
    return 0;
}
