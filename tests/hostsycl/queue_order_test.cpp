// Order between command groups (accessors, host waits), what a buffer's end waits
// for and writes back, and asynchronous errors on their way to the handler.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <atomic>
#include <chrono>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// Named outside the anonymous namespace, whose spelling differs between compilers.
namespace order_test {
class early_return_kernel;
class plain_barrier_kernel;
}  // namespace order_test

namespace {

namespace hs = sycl::ext::hostsycl;

void sleep_ms(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// An asynchronous handler that keeps each error as "<code> <words>", code -1 for a std error.
sycl::async_handler recorder(std::vector<std::string>& seen) {
    return [&seen](sycl::exception_list errors) {
        for (const auto& e : errors) {
            try {
                std::rethrow_exception(e);
            } catch (const std::exception& x) {
                const auto* s = dynamic_cast<const sycl::exception*>(&x);
                seen.push_back(std::to_string(s ? s->code().value() : -1) + " " + x.what());
            }
        }
    };
}

// A slow kernel writes a buffer that a kernel on another queue reads, and a placeholder accessor
// orders a host task after both. A buffer's end waits for it and writes back unless the host data
// are read-only; a copy that is not the last writes nothing; a buffer of 0 elements has one.
TEST(command_order, accessors_order_commands_across_queues_until_the_buffers_end) {
    constexpr std::size_t n = 512;
    sycl::queue first{hs::make_gpu_device(64)}, second{sycl::cpu_selector_v};
    std::vector<int> result(n, 0);
    const std::vector<int> constant{1, 2};
    long long sum = -1;
    {
        sycl::buffer<int, 1> a{sycl::range<1>(n)}, b(result.data(), sycl::range<1>(n));
        sycl::buffer<int, 1> c(constant.data(), sycl::range<1>(2)), e{sycl::range<1>(0)};
        first.submit([&](sycl::handler& cgh) {
            sycl::accessor out(a, cgh, sycl::write_only, sycl::no_init);
            cgh.parallel_for(sycl::nd_range<1>(n, 64), [=](sycl::nd_item<1> it) {
                if (it.get_global_id(0) % 100 == 0)
                    sleep_ms(10);
                out[it.get_global_id(0)] = static_cast<int>(it.get_global_id(0)) + 1;
            });
        });
        second.submit([&](sycl::handler& cgh) {
            sycl::accessor in(a, cgh, sycl::read_only);
            sycl::accessor out(b, cgh, sycl::write_only);
            sycl::accessor x(c, cgh), z(e, cgh);
            cgh.parallel_for(sycl::nd_range<1>(n, 64), [=](sycl::nd_item<1> it) {
                out[it.get_global_id(0)] = 2 * in[it.get_global_id(0)];
                if (it.get_global_id(0) == 0)
                    x[0] = z[0] = 100;
            });
        });
        sycl::accessor<int, 1, sycl::access_mode::read> placeholder(b);
        EXPECT_TRUE(placeholder.is_placeholder());
        first.submit([&](sycl::handler& cgh) {
            cgh.require(placeholder);
            cgh.host_task([=, &sum] {
                sleep_ms(30);
                sum = std::accumulate(placeholder.begin(), placeholder.end(), 0LL);
            });
        });
        { sycl::buffer<int, 1> copy = b; }
        EXPECT_EQ(result[n - 1], 0);  // nothing is written back while the buffer lives
        EXPECT_EQ(sycl::host_accessor(c)[0], 100);
        EXPECT_EQ(sycl::host_accessor(e).size(), 0u);
    }
    EXPECT_EQ(sum, static_cast<long long>(n) * (n + 1));
    for (std::size_t i = 0; i < n; ++i)
        ASSERT_EQ(result[i], 2 * (static_cast<int>(i) + 1)) << i;
    EXPECT_EQ(constant[0], 1);
}

// Errors wait for wait_and_throw, of the queue or of an event, or for the queue's end; each is
// handed over once.
TEST(async_errors, host_task_errors_reach_the_handler_once) {
    std::vector<std::string> seen;
    const auto fail = [](sycl::queue& q, auto error) {
        return q.submit([&](sycl::handler& cgh) {
            cgh.host_task([=] {
                sleep_ms(10);
                throw error;
            });
        });
    };
    {
        sycl::queue q{sycl::cpu_selector_v, recorder(seen)};
        fail(q, std::runtime_error("boom"));
        const sycl::event e = fail(q, sycl::exception(sycl::errc::invalid, "bad input"));
        q.wait();
        EXPECT_TRUE(seen.empty());
        sycl::event::wait_and_throw({e});
        q.wait_and_throw();
        EXPECT_EQ(seen, (std::vector<std::string>{"-1 boom", "8 bad input"}));
        fail(q, std::runtime_error("late")).wait();
    }
    EXPECT_EQ(seen.back(), "-1 late");
    EXPECT_EQ(seen.size(), 3u);
}

TEST(async_errors, without_a_handler_an_error_is_reported_and_terminates) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // the runtime has threads of its own
    EXPECT_DEATH(
        {
            sycl::queue q{sycl::cpu_selector_v};
            q.submit([&](sycl::handler& cgh) {
                cgh.host_task([] { throw std::runtime_error("nobody listens"); });
            });
            q.wait_and_throw();
        },
        "hostsycl: unhandled asynchronous error: nobody listens");
}

// A work-item that returns while others wait at a barrier, reaches one they never reach, or throws,
// ends its launch with an error instead of a hang; those left waiting are unwound.
TEST(async_errors, work_items_that_miss_a_barrier_or_throw_end_the_launch) {
    std::vector<std::string> seen;
    sycl::queue q{hs::make_gpu_device(8), recorder(seen)};
    auto* unwound = sycl::malloc_shared<std::atomic<int>>(1, q);
    new (unwound) std::atomic<int>(0);
    struct count_on_exit {
        std::atomic<int>* counter;
        ~count_on_exit() { ++*counter; }
    };
    q.submit([&](sycl::handler& cgh) {
        cgh.parallel_for<order_test::early_return_kernel>(
            sycl::nd_range<1>(8, 8), [=](sycl::nd_item<1> it) {
                if (it.get_local_id(0) != 3)
                    sycl::group_barrier(it.get_group());
            });
    });
    q.submit([&](sycl::handler& cgh) {
        cgh.parallel_for<order_test::plain_barrier_kernel>(
            sycl::nd_range<1>(4, 4), [=](sycl::nd_item<1> it) {
                if (it.get_local_id(0) == 2)
                    sycl::group_barrier(it.get_group());
            });
    });
    q.submit([&](sycl::handler& cgh) {
        cgh.parallel_for(sycl::nd_range<1>(8, 8), [=](sycl::nd_item<1> it) {
            count_on_exit guard{unwound};
            sycl::group_barrier(it.get_group());
            if (it.get_local_id(0) == 5)
                throw std::runtime_error("item 5 gives up");
            sycl::group_barrier(it.get_group());
        });
    });
    q.wait_and_throw();
    const std::string rule = "; every work-item of a group must reach the same barriers.";
    EXPECT_EQ(seen, (std::vector<std::string>{
                        "2 Kernel 'order_test::early_return_kernel', work-group 0: work-item 3 "
                        "returned while work-item 0 waits at barrier 1" +
                            rule,
                        "2 Kernel 'order_test::plain_barrier_kernel', work-group 0: work-item 2 "
                        "reached a barrier that work-item 0 never reached" +
                            rule,
                        "-1 item 5 gives up"}));
    EXPECT_EQ(unwound->load(), 8);  // 0-4 and 6-7 unwound at the barrier, 5 by its throw
    sycl::free(unwound, q);
}

}  // namespace
