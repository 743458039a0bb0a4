// Failures on either side of the host task: a status other than 0 from the core library becomes
// computation_error in the queue's asynchronous handler, and a temporary that cannot be
// allocated becomes device_bad_alloc on the caller's thread after the others are freed.
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "cpu/cpu_estimators.hpp"
#include "cpu/doubles/core_double.hpp"

namespace {

using namespace tavrel::qnd::stats;
using namespace tavrel::qnd::stats::detail::cpu;
namespace ext = sycl::ext::hostsycl;

constexpr std::int64_t n_dims = 4;
constexpr std::int64_t n_observations = 6;

class host_task_failures : public ::testing::Test {
  protected:
    void SetUp() override {
        core_double::reset();
        x = sycl::malloc_shared<double>(n_dims * n_observations, queue);
        out = sycl::malloc_shared<double>(n_dims, queue);
        mean = sycl::malloc_shared<double>(n_dims, queue);
        ext::set_usm_observer([this](ext::usm_op op, void* ptr, std::size_t) {
            std::lock_guard<std::mutex> guard(lock);
            if (op == ext::usm_op::malloc_shared && ptr != nullptr)
                allocated.push_back(ptr);
            if (op == ext::usm_op::free)
                freed.push_back(ptr);
        });
    }
    void TearDown() override {
        ext::set_usm_observer({});
        ext::fail_next_allocations(0);
        sycl::free(x, queue);
        sycl::free(out, queue);
        sycl::free(mean, queue);
        core_double::reset();
    }

    // The texts of what reached the asynchronous handler since the last call.
    std::vector<std::string> handled() {
        queue.wait_and_throw();
        std::lock_guard<std::mutex> guard(lock);
        std::vector<std::string> texts;
        texts.swap(errors);
        return texts;
    }

    std::vector<std::string> entries() {
        std::vector<std::string> names;
        for (const core_double::call& c : core_double::calls())
            names.push_back(c.entry);
        return names;
    }

    std::mutex lock;
    std::vector<std::string> errors;
    std::vector<void*> allocated;
    std::vector<void*> freed;
    sycl::queue queue{sycl::cpu_selector_v, [this](sycl::exception_list list) {
                          for (const std::exception_ptr& e : list) {
                              try {
                                  std::rethrow_exception(e);
                              } catch (const tavrel::qnd::computation_error& error) {
                                  std::lock_guard<std::mutex> guard(lock);
                                  errors.push_back(error.what());
                              } catch (const std::exception& other) {
                                  std::lock_guard<std::mutex> guard(lock);
                                  errors.push_back(std::string("unexpected: ") + other.what());
                              }
                          }
                      }};
    double* x = nullptr;
    double* out = nullptr;
    double* mean = nullptr;
};

const char* const computation_text = "tavrel::qnd::stats: computation error";

TEST_F(host_task_failures, a_failing_entry_becomes_computation_error_and_leaves_the_task) {
    struct failing {
        const char* entry;
        std::int32_t status;
        std::vector<std::string> calls;  // up to and including the failing one
        std::function<sycl::event(sycl::queue&, const dataset<row_major, double*>&, double*)> run;
    };
    const auto mean_of = [](sycl::queue& q, const dataset<row_major, double*>& d, double* o) {
        return run_mean<double, row_major>(q, d, o, {});
    };
    const auto sums_of = [](sycl::queue& q, const dataset<row_major, double*>& d, double* o) {
        return run_raw_sum<double, row_major>(q, d, o, nullptr, nullptr, nullptr, {});
    };
    const auto moments_of = [](sycl::queue& q, const dataset<row_major, double*>& d, double* o) {
        return run_raw_moment<double, row_major>(q, d, o, nullptr, nullptr, nullptr, {});
    };
    const std::vector<failing> cases = {
        {"__rtkdSSNewTask", -1, {"__rtkdSSNewTask"}, mean_of},
        {"__rtkdSSEditTask", -4092, {"__rtkdSSNewTask", "__rtkdSSEditTask"}, mean_of},
        {"__rtkdSSEditSums", -3, {"__rtkdSSNewTask", "__rtkdSSEditSums"}, sums_of},
        {"__rtkdSSEditMoments", 2, {"__rtkdSSNewTask", "__rtkdSSEditMoments"}, moments_of},
        // A positive status of the routine counts as a failure too.
        {"_rtkdSSBasic", 1, {"__rtkdSSNewTask", "__rtkdSSEditTask", "_rtkdSSBasic"}, mean_of},
        {"_rtkdSSBasic", -4090, {"__rtkdSSNewTask", "__rtkdSSEditTask", "_rtkdSSBasic"}, mean_of},
        // A failed delete is not retried.
        {"__rtkSSDeleteTask",
         -1,
         {"__rtkdSSNewTask", "__rtkdSSEditTask", "_rtkdSSBasic", "__rtkSSDeleteTask"},
         mean_of},
    };
    const dataset<row_major, double*> data(n_dims, n_observations, x);
    for (const failing& c : cases) {
        SCOPED_TRACE(std::string(c.entry) + " returning " + std::to_string(c.status));
        core_double::reset();
        core_double::set_status(c.entry, c.status);
        c.run(queue, data, out).wait();
        EXPECT_EQ(handled(), std::vector<std::string>{computation_text});
        EXPECT_EQ(entries(), c.calls);
    }
    // Success again once the entries answer 0.
    core_double::reset();
    run_mean<double, row_major>(queue, data, out, {}).wait();
    EXPECT_TRUE(handled().empty());
}

TEST_F(host_task_failures, a_task_the_dispatcher_refuses_becomes_computation_error) {
    // No dimension: the frame lets it through, the dispatcher answers -4001 and no routine runs.
    const dataset<row_major, double*> no_dims(0, n_observations, x);
    run_mean<double, row_major>(queue, no_dims, out, {}).wait();
    EXPECT_EQ(handled(), std::vector<std::string>{computation_text});
    EXPECT_EQ(entries(), (std::vector<std::string>{"__rtkdSSNewTask", "__rtkdSSEditTask"}));

    core_double::reset();
    const dataset<col_major, double*> no_observations(n_dims, 0, x);
    run_max<double, col_major>(queue, no_observations, out, {}).wait();
    EXPECT_EQ(handled(), std::vector<std::string>{computation_text});
}

TEST_F(host_task_failures, a_failure_with_temporaries_still_frees_them_and_returns) {
    core_double::set_status("_rtkdSSBasic", -4052);
    const dataset<row_major, double*> data(n_dims, n_observations, x);
    allocated.clear();
    freed.clear();
    run_kurtosis<double, row_major>(queue, data, out, {});
    // The call waited for the host task (all of it had happened on return, the delete left out)
    // and freed its six temporaries in order.
    EXPECT_EQ(entries(), (std::vector<std::string>{"__rtkdSSNewTask", "__rtkdSSEditMoments",
                                                   "__rtkdSSEditTask", "_rtkdSSBasic"}));
    ASSERT_EQ(allocated.size(), 6u);
    EXPECT_EQ(freed, allocated);
    EXPECT_EQ(handled(), std::vector<std::string>{computation_text});
}

TEST_F(host_task_failures, an_unallocated_temporary_is_device_bad_alloc_after_freeing_the_rest) {
    struct allocation_case {
        const char* family;
        int temporaries;  // attempted
        std::function<void()> run;
    };
    const dataset<row_major, double*> data(n_dims, n_observations, x);
    const std::vector<allocation_case> cases = {
        {"central_sum", 4,
         [&] { run_central_sum<1, double, row_major>(queue, data, out, out, out, {}); }},
        {"central_sum", 2,
         [&] { run_central_sum<1, double, row_major>(queue, data, out, nullptr, nullptr, {}); }},
        {"central_sum", 1,
         [&] { run_central_sum<2, double, row_major>(queue, data, out, out, out, {}); }},
        {"central_moment", 3,
         [&] { run_central_moment<1, double, row_major>(queue, data, out, nullptr, out, {}); }},
        {"central_moment", 1,
         [&] {
             run_central_moment<double, row_major>(queue, mean, data, out, nullptr, nullptr, {});
         }},
        {"skewness", 5, [&] { run_skewness<double, row_major>(queue, data, out, {}); }},
        {"skewness", 4, [&] { run_skewness<double, row_major>(queue, mean, data, out, {}); }},
        {"kurtosis", 6, [&] { run_kurtosis<double, row_major>(queue, data, out, {}); }},
        {"kurtosis", 5, [&] { run_kurtosis<double, row_major>(queue, mean, data, out, {}); }},
        {"variation", 3, [&] { run_variation<double, row_major>(queue, data, out, {}); }},
        {"variation", 2, [&] { run_variation<double, row_major>(queue, mean, data, out, {}); }},
    };
    const std::string device = queue.get_device().get_info<sycl::info::device::name>();
    for (const allocation_case& c : cases) {
        for (std::size_t failing : {std::size_t{1}, std::size_t{2}}) {
            if (static_cast<int>(failing) > c.temporaries)
                continue;
            SCOPED_TRACE(testing::Message() << c.family << " with " << c.temporaries
                                            << " temporaries, " << failing << " failing");
            core_double::reset();
            allocated.clear();
            freed.clear();
            ext::fail_next_allocations(failing);
            try {
                c.run();
                ADD_FAILURE() << "no exception";
            } catch (const tavrel::qnd::device_bad_alloc& e) {
                EXPECT_EQ(std::string(e.what()), std::string("tavrel::qnd::rng::") + c.family +
                                                     ": cannot allocate memory on " + device);
            }
            ext::fail_next_allocations(0);
            // Every allocation was tried; those that worked were freed in order; nothing ran.
            EXPECT_EQ(static_cast<int>(allocated.size()),
                      c.temporaries - static_cast<int>(failing));
            EXPECT_EQ(freed, allocated);
            EXPECT_TRUE(core_double::calls().empty());
        }
    }
}

}  // namespace
