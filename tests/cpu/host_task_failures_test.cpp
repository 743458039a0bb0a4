// Failures of the host task: a status other than 0 from the core library becomes
// computation_error in the queue's asynchronous handler, and the task's temporaries are freed.
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

constexpr std::int64_t n_dims = 4, n_observations = 6;
const char* const computation_text = "tavrel::qnd::stats: computation error";

class host_task_failures : public ::testing::Test {
  protected:
    void SetUp() override {
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
        for (double* p : {x, out, mean})
            sycl::free(p, queue);
        core_double::reset();
    }
    // The texts of what reached the asynchronous handler since the last call.
    std::vector<std::string> handled() {
        queue.wait_and_throw();
        std::lock_guard<std::mutex> guard(lock);
        return std::move(errors);
    }
    void forget() {
        core_double::reset();
        allocated.clear();
        freed.clear();
    }

    std::mutex lock;
    std::vector<std::string> errors;
    std::vector<void*> allocated, freed;
    sycl::queue queue{sycl::cpu_selector_v, [this](sycl::exception_list list) {
                          for (const std::exception_ptr& e : list) {
                              std::lock_guard<std::mutex> guard(lock);
                              try {
                                  std::rethrow_exception(e);
                              } catch (const tavrel::qnd::computation_error& error) {
                                  errors.push_back(error.what());
                              } catch (const std::exception& other) {
                                  errors.push_back(std::string("unexpected: ") + other.what());
                              }
                          }
                      }};
    double* x = sycl::malloc_shared<double>(n_dims * n_observations, queue);
    double* out = sycl::malloc_shared<double>(n_dims, queue);
    double* mean = sycl::malloc_shared<double>(n_dims, queue);
    const dataset<row_major, double*> data{n_dims, n_observations, x};
};

TEST_F(host_task_failures, a_failing_entry_becomes_computation_error_and_leaves_the_task) {
    const std::function<void()> mean_of = [&] {
        run_mean<double, row_major>(queue, data, out, {}).wait();
    };
    const struct {
        const char* entry;
        std::int32_t status;
        const char* calls;  // up to and including the failing one
        std::function<void()> run;
    } cases[] = {
        {"__rtkdSSNewTask", -1, "__rtkdSSNewTask", mean_of},
        {"__rtkdSSEditTask", -4092, "__rtkdSSNewTask __rtkdSSEditTask", mean_of},
        {"__rtkdSSEditSums", -3, "__rtkdSSNewTask __rtkdSSEditSums",
         [&] {
             run_raw_sum<double, row_major>(queue, data, out, nullptr, nullptr, nullptr, {}).wait();
         }},
        {"__rtkdSSEditMoments", 2, "__rtkdSSNewTask __rtkdSSEditMoments",
         [&] {
             run_raw_moment<double, row_major>(queue, data, out, nullptr, nullptr, nullptr, {})
                 .wait();
         }},
        // A positive status of the routine counts as a failure too.
        {"_rtkdSSBasic", 1, "__rtkdSSNewTask __rtkdSSEditTask _rtkdSSBasic", mean_of},
        {"_rtkdSSBasic", -4090, "__rtkdSSNewTask __rtkdSSEditTask _rtkdSSBasic", mean_of},
        // A failed delete is not retried.
        {"__rtkSSDeleteTask", -1, "__rtkdSSNewTask __rtkdSSEditTask _rtkdSSBasic __rtkSSDeleteTask",
         mean_of},
        // A task the dispatcher refuses (no dimension) reaches no routine.
        {"", 0, "__rtkdSSNewTask __rtkdSSEditTask",
         [&] {
             run_mean<double, row_major>(queue, dataset<row_major, double*>(0, 6, x), out, {})
                 .wait();
         }},
        // Temporaries of no dimension do not stop a family before the core library.
        {"", 0, "__rtkdSSNewTask __rtkdSSEditMoments __rtkdSSEditTask",
         [&] {
             run_kurtosis<double, row_major>(queue, dataset<row_major, double*>(0, 6, x), out, {})
                 .wait();
         }},
        {"", 0, "__rtkdSSNewTask __rtkdSSEditTask",
         [&] {
             run_max<double, col_major>(queue, dataset<col_major, double*>(4, 0, x), out, {})
                 .wait();
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.entry) + " returning " + std::to_string(c.status));
        forget();
        core_double::set_status(c.entry, c.status);
        c.run();
        EXPECT_EQ(handled(), std::vector<std::string>{computation_text});
        std::string calls;
        for (const std::string& entry : core_double::entries())
            calls += (calls.empty() ? "" : " ") + entry;
        EXPECT_EQ(calls, c.calls);
    }
    // Success again once the entries answer 0.
    forget();
    mean_of();
    EXPECT_TRUE(handled().empty());
}

TEST_F(host_task_failures, a_failure_with_temporaries_still_frees_them_and_returns) {
    forget();
    core_double::set_status("_rtkdSSBasic", -4052);
    run_kurtosis<double, row_major>(queue, data, out, {});
    // The call waited for the host task (all of it had happened on return, the delete left out)
    // and freed its six temporaries in order.
    EXPECT_EQ(core_double::entries(),
              (std::vector<std::string>{"__rtkdSSNewTask", "__rtkdSSEditMoments",
                                        "__rtkdSSEditTask", "_rtkdSSBasic"}));
    ASSERT_EQ(allocated.size(), 6u);
    EXPECT_EQ(freed, allocated);
    EXPECT_EQ(handled(), std::vector<std::string>{computation_text});
}

}  // namespace
