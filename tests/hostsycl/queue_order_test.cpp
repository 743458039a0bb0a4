// Order between command groups (accessors, depends_on, host tasks), blocking buffer
// destruction with write-back, zero-sized buffers, and asynchronous errors.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <atomic>
#include <chrono>
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

class slow_writer;
class doubling_reader;
class zero_size_writer;
using order_test::early_return_kernel;
using order_test::plain_barrier_kernel;

// A kernel that takes a while per work-item, so that a command that ignored the order would
// read unfinished data.
template <typename Acc>
void slow_fill(Acc out, std::size_t id) {
    volatile double spin = 0;
    for (int k = 0; k < 2000; ++k)
        spin = spin + k;
    out[id] = static_cast<int>(id) + 1;
}

// A queue whose asynchronous handler keeps each error it is handed as "sycl <code> <text>" or
// "std <text>".
struct recording_queue {
    std::vector<std::string> seen;
    sycl::queue queue;

    explicit recording_queue(const sycl::device& device)
        : queue(device, [this](sycl::exception_list errors) {
              for (const auto& e : errors) {
                  try {
                      std::rethrow_exception(e);
                  } catch (const sycl::exception& ex) {
                      seen.push_back("sycl " + std::to_string(ex.code().value()) + " " + ex.what());
                  } catch (const std::exception& ex) {
                      seen.push_back(std::string("std ") + ex.what());
                  }
              }
          }) {}
    recording_queue(const recording_queue&) = delete;
};

const std::string kernel_code = std::to_string(static_cast<int>(sycl::errc::kernel));

TEST(command_order, accessors_order_kernels_across_two_queues) {
    constexpr std::size_t n = 512;
    sycl::queue first{sycl::ext::hostsycl::make_gpu_device(64)};
    sycl::queue second{sycl::ext::hostsycl::make_gpu_device(64)};
    std::vector<int> result(n, 0);
    {
        sycl::buffer<int, 1> a{sycl::range<1>(n)};
        sycl::buffer<int, 1> b(result.data(), sycl::range<1>(n));
        first.submit([&](sycl::handler& cgh) {
            sycl::accessor out(a, cgh, sycl::write_only, sycl::no_init);
            cgh.parallel_for<slow_writer>(sycl::nd_range<1>(n, 64), [=](sycl::nd_item<1> it) {
                slow_fill(out, it.get_global_id(0));
            });
        });
        second.submit([&](sycl::handler& cgh) {
            sycl::accessor in(a, cgh, sycl::read_only);
            sycl::accessor out(b, cgh, sycl::write_only);
            cgh.parallel_for<doubling_reader>(sycl::nd_range<1>(n, 64), [=](sycl::nd_item<1> it) {
                out[it.get_global_id(0)] = 2 * in[it.get_global_id(0)];
            });
        });
    }  // destroying b waits for the second kernel and writes back
    for (std::size_t i = 0; i < n; ++i)
        ASSERT_EQ(result[i], 2 * (static_cast<int>(i) + 1)) << i;
}

TEST(command_order, depends_on_orders_host_tasks_of_different_queues) {
    sycl::queue producer{sycl::cpu_selector_v};
    sycl::queue consumer{sycl::cpu_selector_v};
    int* cell = sycl::malloc_shared<int>(2, producer);
    cell[0] = 0;
    cell[1] = -1;
    sycl::event made = producer.submit([&](sycl::handler& cgh) {
        cgh.host_task([=] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            cell[0] = 42;
        });
    });
    consumer
        .submit([&](sycl::handler& cgh) {
            cgh.depends_on(made);
            cgh.host_task([=] { cell[1] = cell[0]; });
        })
        .wait();
    EXPECT_EQ(cell[1], 42);
    sycl::free(cell, producer);
}

TEST(command_order, depends_on_a_list_waits_for_every_event) {
    sycl::queue a{sycl::cpu_selector_v};
    sycl::queue b{sycl::cpu_selector_v};
    sycl::queue c{sycl::cpu_selector_v};
    int* cell = sycl::malloc_shared<int>(3, a);
    cell[0] = cell[1] = 0;
    std::vector<sycl::event> events{
        a.submit([&](sycl::handler& cgh) {
            cgh.host_task([=] {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                cell[0] = 1;
            });
        }),
        b.submit([&](sycl::handler& cgh) {
            cgh.host_task([=] {
                std::this_thread::sleep_for(std::chrono::milliseconds(40));
                cell[1] = 2;
            });
        }),
        sycl::event()};  // a default event is complete
    c.submit([&](sycl::handler& cgh) {
         cgh.depends_on(events);
         cgh.host_task([=] { cell[2] = cell[0] + cell[1]; });
     }).wait();
    EXPECT_EQ(cell[2], 3);
    sycl::event::wait(events);
    sycl::free(cell, a);
}

TEST(queues, a_device_outside_the_context_is_refused) {
    sycl::context ctx{sycl::device(sycl::cpu_selector_v)};
    try {
        sycl::queue q(ctx, sycl::device(sycl::gpu_selector_v));
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::invalid);
        EXPECT_STREQ(e.what(), "The queue's device is not one of its context's devices.");
    }
    sycl::queue fine(ctx, sycl::device(sycl::cpu_selector_v));
    EXPECT_EQ(fine.get_context(), ctx);
    EXPECT_EQ(sycl::queue(sycl::cpu_selector_v).get_context(),
              sycl::queue(sycl::cpu_selector_v).get_context());  // one default context per device
}

TEST(command_order, host_task_after_kernel_through_an_accessor) {
    constexpr std::size_t n = 256;
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(32)};
    sycl::buffer<int, 1> data{sycl::range<1>(n)};
    long long sum = -1;
    q.submit([&](sycl::handler& cgh) {
        sycl::accessor out(data, cgh, sycl::write_only);
        cgh.parallel_for<class slow_writer_2>(sycl::nd_range<1>(n, 32), [=](sycl::nd_item<1> it) {
            slow_fill(out, it.get_global_id(0));
        });
    });
    sycl::accessor<int, 1, sycl::access_mode::read> placeholder(data);
    EXPECT_TRUE(placeholder.is_placeholder());
    q.submit([&](sycl::handler& cgh) {
         cgh.require(placeholder);
         cgh.host_task([=, &sum] {
             long long s = 0;
             const int* p = placeholder.get_pointer();
             for (std::size_t i = 0; i < n; ++i)
                 s += p[i];
             sum = s;
         });
     }).wait();
    EXPECT_EQ(sum, static_cast<long long>(n) * (n + 1) / 2);
}

TEST(buffer_lifetime, destruction_waits_for_a_host_task_and_writes_back) {
    sycl::queue q{sycl::cpu_selector_v};
    std::vector<double> host(4, 1.0);
    std::atomic<bool> finished{false};
    {
        sycl::buffer<double, 1> b(host.data(), sycl::range<1>(4));
        q.submit([&](sycl::handler& cgh) {
            sycl::accessor acc(b, cgh, sycl::read_write);
            cgh.host_task([=, &finished] {
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
                for (std::size_t i = 0; i < 4; ++i)
                    acc[i] = acc[i] * 10 + static_cast<double>(i);
                finished = true;
            });
        });
        EXPECT_EQ(host[3], 1.0);  // nothing is written back while the buffer lives
    }
    EXPECT_TRUE(finished.load());
    EXPECT_EQ(host, (std::vector<double>{10.0, 11.0, 12.0, 13.0}));
}

TEST(buffer_lifetime, read_only_host_data_and_final_data_null_are_not_written_back) {
    sycl::queue q{sycl::cpu_selector_v};
    const std::vector<int> constant{1, 2, 3};
    std::vector<int> detached{1, 2, 3};
    {
        sycl::buffer<int, 1> a(constant.data(), sycl::range<1>(3));
        sycl::buffer<int, 1> b(detached.data(), sycl::range<1>(3));
        b.set_final_data(nullptr);
        q.submit([&](sycl::handler& cgh) {
            sycl::accessor x(a, cgh, sycl::read_write);
            sycl::accessor y(b, cgh, sycl::read_write);
            cgh.host_task([=] {
                x[0] = 100;
                y[0] = 100;
            });
        });
        sycl::host_accessor check(a, sycl::read_only);
        EXPECT_EQ(check[0], 100);  // the storage changed; the host data stays as it was
    }
    EXPECT_EQ(constant[0], 1);
    EXPECT_EQ(detached[0], 1);
}

// Writes through an accessor of a buffer of 0 elements land in its one private element.
TEST(buffer_lifetime, zero_sized_buffer_has_one_harmless_element) {
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(4)};
    std::vector<int> neighbour(4, 7);
    {
        sycl::buffer<int, 1> empty{sycl::range<1>(0)};
        sycl::buffer<int, 1> next(neighbour.data(), sycl::range<1>(4));
        EXPECT_EQ(empty.size(), 0u);
        q.submit([&](sycl::handler& cgh) {
            sycl::accessor e(empty, cgh, sycl::write_only);
            sycl::accessor keep(next, cgh, sycl::read_write);
            cgh.parallel_for<zero_size_writer>(sycl::nd_range<1>(4, 4), [=](sycl::nd_item<1> it) {
                e[0] = static_cast<int>(it.get_global_id(0)) + 1000;
                keep[it.get_global_id(0)] += 1;
            });
        });
        sycl::host_accessor h(empty);
        EXPECT_EQ(h.size(), 0u);
        EXPECT_GE(h.get_pointer()[0], 1000);
    }
    EXPECT_EQ(neighbour, (std::vector<int>{8, 8, 8, 8}));
}

TEST(async_errors, host_task_exception_reaches_the_queue_handler) {
    recording_queue r{sycl::device(sycl::cpu_selector_v)};
    sycl::queue& q = r.queue;
    q.submit([&](sycl::handler& cgh) { cgh.host_task([] { throw std::runtime_error("boom"); }); });
    q.submit([&](sycl::handler& cgh) {
        cgh.host_task([] { throw sycl::exception(sycl::errc::invalid, "bad input"); });
    });
    q.wait();
    EXPECT_TRUE(r.seen.empty());  // handed over at wait_and_throw, not before
    q.wait_and_throw();
    EXPECT_EQ(r.seen, (std::vector<std::string>{"std boom", "sycl 8 bad input"}));
    q.wait_and_throw();
    EXPECT_EQ(r.seen.size(), 2u);
}

TEST(async_errors, event_wait_and_throw_hands_errors_to_the_handler) {
    int calls = 0;
    sycl::queue q{sycl::cpu_selector_v,
                  [&](sycl::exception_list errors) { calls += errors.size(); }};
    sycl::event e = q.submit(
        [&](sycl::handler& cgh) { cgh.host_task([] { throw std::runtime_error("late"); }); });
    sycl::event::wait_and_throw({e});
    EXPECT_EQ(calls, 1);
}

using async_errors_death = ::testing::Test;

TEST(async_errors_death, default_handler_reports_and_terminates) {
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

// A work-item that returns while the others wait at a barrier, or reaches a barrier the others
// never reach, is reported as a kernel error, not a hang.
TEST(async_errors, work_items_that_do_not_meet_at_a_barrier_are_a_kernel_error) {
    recording_queue r{sycl::ext::hostsycl::make_gpu_device(8)};
    r.queue.submit([&](sycl::handler& cgh) {
        cgh.parallel_for<early_return_kernel>(sycl::nd_range<1>(8, 8), [=](sycl::nd_item<1> it) {
            if (it.get_local_id(0) == 3)
                return;
            sycl::group_barrier(it.get_group());
        });
    });
    r.queue.wait_and_throw();
    r.queue.submit([&](sycl::handler& cgh) {
        cgh.parallel_for<plain_barrier_kernel>(sycl::nd_range<1>(4, 4), [=](sycl::nd_item<1> it) {
            if (it.get_local_id(0) == 2)
                sycl::group_barrier(it.get_group());
        });
    });
    r.queue.wait_and_throw();
    EXPECT_EQ(r.seen,
              (std::vector<std::string>{
                  "sycl " + kernel_code +
                      " Kernel 'order_test::early_return_kernel', work-group 0: work-item 3 "
                      "returned while work-item 0 waits at barrier 1; every work-item of a group "
                      "must reach the same barriers.",
                  "sycl " + kernel_code +
                      " Kernel 'order_test::plain_barrier_kernel', work-group 0: work-item 2 "
                      "reached a barrier that work-item 0 never reached; every work-item of a "
                      "group must reach the same barriers."}));
}

// A work-item that throws ends the launch; the work-items left waiting at the barrier are
// unwound (their destructors run) and the exception reaches the asynchronous handler.
TEST(async_errors, exception_in_a_kernel_unwinds_the_waiting_work_items) {
    recording_queue r{sycl::ext::hostsycl::make_gpu_device(8)};
    sycl::queue& q = r.queue;
    auto* unwound = sycl::malloc_shared<std::atomic<int>>(1, q);
    new (unwound) std::atomic<int>(0);
    struct count_on_exit {
        std::atomic<int>* counter;
        ~count_on_exit() { ++*counter; }
    };
    q.submit([&](sycl::handler& cgh) {
        cgh.parallel_for<class throwing_kernel>(sycl::nd_range<1>(8, 8), [=](sycl::nd_item<1> it) {
            count_on_exit guard{unwound};
            sycl::group_barrier(it.get_group());
            if (it.get_local_id(0) == 5)
                throw std::runtime_error("item 5 gives up");
            sycl::group_barrier(it.get_group());
        });
    });
    q.wait_and_throw();
    EXPECT_EQ(r.seen, std::vector<std::string>{"std item 5 gives up"});
    EXPECT_EQ(unwound->load(), 8);  // 0-4 and 6-7 unwound at the barrier, 5 by its throw
    sycl::free(unwound, q);
}

TEST(command_groups, a_second_action_is_refused) {
    sycl::queue q{sycl::cpu_selector_v};
    try {
        q.submit([&](sycl::handler& cgh) {
            cgh.host_task([] {});
            cgh.host_task([] {});
        });
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::runtime);
        EXPECT_STREQ(e.what(),
                     "A command group holds one action: parallel_for or host_task, not two.");
    }
}

}  // namespace
