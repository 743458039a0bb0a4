// qnd-stats: summary statistics of each dimension of a data file, computed by the library.
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include <sycl/sycl.hpp>
#include <tavrel/qnd/exceptions.hpp>

#include "compute.hpp"
#include "data_source.hpp"
#include "report.hpp"
#include "tool_errors.hpp"

#ifndef QND_STATS_VERSION
#define QND_STATS_VERSION "unknown"
#endif

namespace {

int fail(const std::string& text, int status) {
    std::fprintf(stderr, "qnd-stats: %s\n", text.c_str());
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace qnd_stats;
    try {
        const tool_options options = parse_options(argc, argv);
        if (options.help) {
            std::fputs(help_text().c_str(), stdout);
            return 0;
        }
        if (options.version) {
            std::printf("qnd-stats %s\n", QND_STATS_VERSION);
            return 0;
        }
        const std::unique_ptr<data_source> data = open_source(options.file, options);
        stats_job job = prepare_job(*data, options);
        sycl::queue queue = make_queue(options.device);
        const std::vector<quantity> results = compute(queue, *data, job, options);
        const report_context context{options.file,
                                     queue.get_device().get_info<sycl::info::device::name>(),
                                     options.use_float};
        const std::string report = format_report(context, job, results, options.output);
        if (std::fwrite(report.data(), 1, report.size(), stdout) != report.size() ||
            std::fflush(stdout) != 0)
            return fail("cannot write the results", 1);
        return 0;
    } catch (const usage_error& e) {
        return fail(e.what(), 2);
    } catch (const input_error& e) {
        return fail(e.what(), 1);
    } catch (const tavrel::qnd::exception& e) {
        return fail(e.what(), 1);
    } catch (const sycl::exception& e) {
        return fail(std::string("SYCL error: ") + e.what(), 1);
    } catch (const std::bad_alloc&) {
        return fail("out of memory", 1);
    } catch (const std::exception& e) {
        return fail(e.what(), 1);
    }
}
