// The CPU side of the estimators against the recording stand-in of the core library: what each
// adapter hands it, in either form (the estimator tests check the values), and the failures of
// the host task, which become computation_error in the queue's handler and still free temporaries.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <exception>
#include <functional>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "cpu/cpu_estimators.hpp"
#include "cpu/doubles/core_double.hpp"

namespace {

using namespace tavrel::qnd::stats;
using namespace tavrel::qnd::stats::detail::cpu;
namespace ext = sycl::ext::hostsycl;
using B = sycl::buffer<double, 1>;

constexpr std::int64_t n_dims = 3, n_observations = 4;

// One call in its forms (p pointers, b buffers) and what must reach the core library. The name's
// first word is the family; "alternate" is method 2, ", mean" the overload with a caller's mean.
// `entries` lie between NewTask and DeleteTask, without "Edit". `words` are the result words the
// computed record holds: a to d the caller's arrays, m its mean, t a temporary; the others null.
struct row {
    const char *forms, *name, *entries, *words;
    std::uint64_t mask;
    std::int64_t method;
};

// Calls the family of `name` on arrays A (pointers, with `deps`, or buffers).
template <class A, class X, class... E>
void call(sycl::queue& q, const std::string& name, const X& x, A* r, A m, const E&... deps) {
    using D = double;
    constexpr layout R = row_major;
    const std::string f = name.substr(0, name.find_first_of(" ,"));
    const int M = name.find("alternate") != std::string::npos ? alternate : fast;
    const bool given_mean = name.find(", mean") != std::string::npos;
    // clang-format off
    if (f == "mean") run_mean<D, R>(q, x, r[0], deps...);
    else if (f == "min") run_min<D, R>(q, x, r[0], deps...);
    else if (f == "max") run_max<D, R>(q, x, r[0], deps...);
    else if (f == "min_max") run_min_max<D, R>(q, x, r[0], r[1], deps...);
    else if (f == "raw_sum") run_raw_sum<D, R>(q, x, r[0], r[1], r[2], r[3], deps...);
    else if (f == "raw_moment") run_raw_moment<D, R>(q, x, r[0], r[1], r[2], r[3], deps...);
    else if (f == "central_sum" && given_mean) run_central_sum<D, R>(q, m, x, r[0], r[1], r[2], deps...);
    else if (f == "central_sum" && M == fast) run_central_sum<fast, D, R>(q, x, r[0], r[1], r[2], deps...);
    else if (f == "central_sum") run_central_sum<alternate, D, R>(q, x, r[0], r[1], r[2], deps...);
    else if (f == "central_moment" && given_mean) run_central_moment<D, R>(q, m, x, r[0], r[1], r[2], deps...);
    else if (f == "central_moment" && M == fast) run_central_moment<fast, D, R>(q, x, r[0], r[1], r[2], deps...);
    else if (f == "central_moment") run_central_moment<alternate, D, R>(q, x, r[0], r[1], r[2], deps...);
    else if (f == "skewness" && given_mean) run_skewness<D, R>(q, m, x, r[0], deps...);
    else if (f == "skewness") run_skewness<D, R>(q, x, r[0], deps...);
    else if (f == "kurtosis" && given_mean) run_kurtosis<D, R>(q, m, x, r[0], deps...);
    else if (f == "kurtosis") run_kurtosis<D, R>(q, x, r[0], deps...);
    else if (f == "variation" && given_mean) run_variation<D, R>(q, m, x, r[0], deps...);
    else if (f == "variation") run_variation<D, R>(q, x, r[0], deps...);
    else ADD_FAILURE() << "no family " << f;
    // clang-format on
    q.wait();
}

class adapters : public ::testing::Test {
  protected:
    void SetUp() override {
        for (double*& r : results)
            r = sycl::malloc_shared<double>(n_dims, queue);
        ext::set_usm_observer([this](ext::usm_op op, void* ptr, std::size_t bytes) {
            std::lock_guard<std::mutex> guard(lock);
            if (op == ext::usm_op::malloc_shared && ptr != nullptr)
                allocated.push_back(ptr), sizes.push_back(bytes);
            if (op == ext::usm_op::free)
                freed.push_back(ptr);
        });
    }
    void TearDown() override {
        ext::set_usm_observer({});
        ext::fail_next_allocations(0);
        for (double* r : results)
            sycl::free(r, queue);
        sycl::free(x, queue);
        core_double::reset();
    }
    void forget() {
        core_double::reset();
        allocated.clear();
        sizes.clear();
        freed.clear();
    }
    // The texts of what reached the asynchronous handler since the last call.
    std::vector<std::string> handled() {
        queue.wait_and_throw();
        std::lock_guard<std::mutex> guard(lock);
        return std::move(errors);
    }
    // The row's call: the caller's arrays a to d that its words name, and the mean m.
    void run(const row& r, bool buffer_form) {
        const auto given = [&](int k) { return std::strchr(r.words, 'a' + k) != nullptr; };
        if (!buffer_form) {
            double* arrays[4];
            for (int k = 0; k < 4; ++k)
                arrays[k] = given(k) ? results[k] : nullptr;
            return call(queue, r.name, usm, arrays, results[4], std::vector<sycl::event>{});
        }
        const dataset<row_major, B> data{n_dims, n_observations, B(x, n_dims * n_observations)};
        std::vector<B> arrays;
        for (int k = 0; k < 4; ++k)
            arrays.push_back(given(k) ? B(results[k], n_dims) : B(sycl::range<1>(0)));
        call(queue, r.name, data, arrays.data(), B(results[4], n_dims));
    }
    void check(const row& r, bool buffer_form);
    void check_allocation_failures(const row& r, std::size_t temporaries);

    std::mutex lock;
    std::vector<std::string> errors;
    sycl::queue queue{sycl::cpu_selector_v, [this](sycl::exception_list list) {
                          std::lock_guard<std::mutex> guard(lock);
                          for (const std::exception_ptr& e : list)
                              try {
                                  std::rethrow_exception(e);
                              } catch (const tavrel::qnd::computation_error& error) {
                                  errors.push_back(error.what());
                              } catch (const std::exception& other) {
                                  errors.push_back(std::string("unexpected: ") + other.what());
                              }
                      }};
    double* x = sycl::malloc_shared<double>(n_dims * n_observations, queue);
    double* results[5] = {};  // a, b, c, d and m, allocated by SetUp
    const dataset<row_major, double*> usm{n_dims, n_observations, x};
    std::vector<void*> allocated, freed;  // temporaries, in order
    std::vector<std::size_t> sizes;       // of those allocated
};

void adapters::check(const row& r, bool buffer_form) {
    SCOPED_TRACE(std::string(buffer_form ? "buffer form, " : "pointer form, ") + r.name);
    forget();
    for (double* result : results)
        std::fill(result, result + n_dims, -1.0);
    run(r, buffer_form);

    // The entries in order, and a task made from the dataset with 64-bit integers.
    const std::vector<core_double::call> calls = core_double::calls();
    ASSERT_GE(calls.size(), 3u);
    std::string labels;
    for (const core_double::call& c : calls) {
        std::string name = c.entry.substr(c.entry.find("SS") + 2);
        name = name.substr(name.find("Edit") == 0 ? 4 : 0);
        labels += (labels.empty() ? "" : " ") + name +
                  (name == "Task" ? std::to_string(c.parameter) : "");
    }
    EXPECT_EQ(labels, std::string("NewTask ") + r.entries + " DeleteTask");
    const core_double::call& made = calls.front();
    EXPECT_EQ(std::make_tuple(made.entry, made.task.int_width, made.n_dims, made.n_observations,
                              made.storage, made.task.weights, made.task.indices),
              std::make_tuple(std::string("__rtkdSSNewTask"), 1u, n_dims, n_observations,
                              std::int64_t{row_major}, nullptr, nullptr));
    EXPECT_TRUE(buffer_form || made.task.observations == x);

    const core_double::call& computed = calls[calls.size() - 2];
    EXPECT_EQ(std::make_pair(computed.estimates, computed.method),
              std::make_pair(r.mask, r.method));
    char holder[30] = {};
    std::istringstream listed(r.words);
    for (std::string w; listed >> w;)
        holder[std::stoi(w)] = w.back();
    std::set<const void*> temporaries;
    std::vector<std::vector<double>> want(5, std::vector<double>(n_dims, -1.0));
    for (int word = 11; word <= 29; ++word) {
        SCOPED_TRACE(testing::Message() << "record word " << word);
        const void* held = core_double::word_of(computed.task, word);
        const int k = holder[word] == 'm' ? 4 : holder[word] - 'a';
        EXPECT_EQ(held != nullptr, holder[word] != 0);
        if (holder[word] == 't' && held != nullptr) {
            EXPECT_EQ(std::count(results, results + 5, held), 0);
            temporaries.insert(held);
        } else if (holder[word] != 0) {
            EXPECT_TRUE(buffer_form || held == results[k]);
            // What the stand-in computed reached the caller's arrays; the others are untouched.
            for (std::int64_t d = 0; d < n_dims && (r.mask & core_double::bit_of_word(word)); ++d)
                want[k][d] = core_double::marker(word, d);
        }
    }
    for (int k = 0; k < 5; ++k)
        EXPECT_EQ(std::vector<double>(results[k], results[k] + n_dims), want[k]) << "result " << k;
    // Temporaries of the pointer form: one shared array of n_dims each, freed in order of
    // allocation. The buffer form has none of them.
    ASSERT_EQ(allocated.size(), buffer_form ? 0u : temporaries.size());
    EXPECT_EQ(sizes, std::vector<std::size_t>(sizes.size(), n_dims * sizeof(double)));
    EXPECT_EQ(freed, allocated);
    EXPECT_TRUE(buffer_form || std::set<const void*>(freed.begin(), freed.end()) == temporaries);
    EXPECT_TRUE(handled().empty());
    if (!buffer_form)
        check_allocation_failures(r, temporaries.size());
}

// When the first or the second temporary cannot be had, every allocation is still tried, those
// that worked are freed in order, nothing reaches the core library, and device_bad_alloc names
// the family and the device.
void adapters::check_allocation_failures(const row& r, std::size_t temporaries) {
    const std::string family(r.name, std::strcspn(r.name, " ,"));
    const std::string device = queue.get_device().get_info<sycl::info::device::name>();
    for (std::size_t failing = 1; failing <= std::min<std::size_t>(2, temporaries); ++failing) {
        SCOPED_TRACE(testing::Message() << failing << " failing");
        forget();
        ext::fail_next_allocations(failing);
        try {
            run(r, false);
            ADD_FAILURE() << "no exception";
        } catch (const tavrel::qnd::device_bad_alloc& e) {
            EXPECT_EQ(std::string(e.what()),
                      "tavrel::qnd::rng::" + family + ": cannot allocate memory on " + device);
        }
        ext::fail_next_allocations(0);
        EXPECT_EQ(allocated.size(), temporaries - failing);
        EXPECT_EQ(freed, allocated);
        EXPECT_TRUE(core_double::calls().empty());
    }
}

TEST_F(adapters, hand_the_core_library_the_arrays_mask_and_method_of_each_call) {
    // clang-format off
    const row rows[] = {
        {"pb", "mean", "Task7 Basic", "11a", 0x1, 1},
        {"pb", "min", "Task16 Minmax", "28a", 0x400, 1},
        {"pb", "max", "Task17 Minmax", "29a", 0x800, 1},
        {"pb", "min_max", "Task16 Task17 Minmax", "28a 29b", 0xc00, 1},
        {"p", "raw_sum, all", "Sums Basic", "18a 19b 20c 21d", 0x1e000000, 1},
        // The order-1 bit stays when s1 is left out.
        {"pb", "raw_sum, s2 and s4", "Sums Basic", "19b 21d", 0x16000000, 1},
        {"p", "raw_sum, s3", "Sums Basic", "20c", 0x0a000000, 1},
        {"p", "raw_moment, all", "Moments Basic", "11a 12b 13c 14d", 0xf, 1},
        {"pb", "raw_moment, r3", "Moments Basic", "13c", 0x5, 1},
        // Fast central sums of the pointer form go through the raw moments and tell the core
        // library 2; the buffer form tells it 1, and r3 and cs3 (a filler) go along with order 4.
        {"p", "central_sum fast, all", "Moments Sums Basic", "11t 12t 13t 14t 22a 23b 24c", 0xe0000000, 2},
        {"p", "central_sum fast, cs2 and cs4", "Moments Sums Basic", "11t 12t 14t 22a 24c", 0xa0000000, 2},
        {"b", "central_sum fast, cs2 and cs4", "Moments Sums Basic", "11t 12t 13t 14t 22a 23t 24c", 0xa0000000, 1},
        {"p", "central_sum fast, cs3", "Moments Sums Basic", "11t 12t 13t 23b", 0x60000000, 2},
        {"b", "central_sum fast, cs2", "Moments Sums Basic", "11t 12t 22a", 0x20000000, 1},
        {"p", "central_sum alternate, all", "Task7 Sums Basic", "11t 22a 23b 24c", 0xe0000000, 2},
        {"p", "central_sum alternate, cs4", "Task7 Sums Basic", "11t 24c", 0xa0000000, 2},
        {"b", "central_sum alternate, cs4", "Task7 Sums Basic", "11t 23t 24c", 0xa0000000, 2},
        {"p", "central_sum, mean", "Task7 Sums Basic", "11m 22a 23b", 0x60000000, 256},
        {"b", "central_sum, mean, cs3", "Task7 Sums Basic", "11m 23b", 0x60000000, 256},
        {"p", "central_moment fast, all", "Moments Basic", "11t 12t 13t 14t 15a 16b 17c", 0x70, 1},
        {"p", "central_moment fast, c2", "Moments Basic", "11t 12t 15a", 0x10, 1},
        // Only r3 goes along with order 4 in the buffer form: the filler of c3 stays out.
        {"b", "central_moment fast, c4", "Moments Basic", "11t 12t 13t 14t 17c", 0x50, 1},
        {"p", "central_moment alternate, c4", "Moments Basic", "11t 12t 14t 17c", 0x50, 2},
        {"b", "central_moment alternate, all", "Moments Basic", "11t 12t 13t 14t 15a 16b 17c", 0x70, 2},
        {"p", "central_moment, mean", "Moments Basic", "11m 12t 13t 15a 16b", 0x30, 256},
        {"b", "central_moment, mean, c2", "Moments Basic", "11m 12t 15a", 0x10, 256},
        {"pb", "skewness", "Moments Task15 Basic", "11t 12t 13t 15t 16t 26a", 0x100, 1},
        {"pb", "skewness, mean", "Moments Task15 Basic", "11m 12t 13t 15t 16t 26a", 0x100, 256},
        {"pb", "kurtosis", "Moments Task14 Basic", "11t 12t 13t 14t 15t 17t 25a", 0x80, 1},
        {"pb", "kurtosis, mean", "Moments Task14 Basic", "11m 12t 13t 14t 15t 17t 25a", 0x80, 256},
        {"pb", "variation", "Moments Task18 Basic", "11t 12t 15t 27a", 0x200, 1},
        {"pb", "variation, mean", "Moments Task18 Basic", "11m 12t 15t 27a", 0x200, 256},
    };
    // clang-format on
    for (const row& r : rows)
        for (const char form : std::string(r.forms))
            check(r, form == 'b');
}

TEST_F(adapters, a_failing_host_task_entry_becomes_computation_error_and_leaves_the_task) {
    constexpr layout R = row_major;
    const auto mean_of = [&] { run_mean<double, R>(queue, usm, results[0], {}).wait(); };
    using D = dataset<R, double*>;
    // clang-format off
    // The entries called up to and including the failing one, behind "__rtk".
    const struct { const char* entry; std::int32_t status; const char* calls; std::function<void()> run; } cases[] = {
        {"__rtkdSSNewTask", -1, "dSSNewTask", mean_of},
        {"__rtkdSSEditTask", -4092, "dSSNewTask dSSEditTask", mean_of},
        {"__rtkdSSEditSums", -3, "dSSNewTask dSSEditSums", [&] { run_raw_sum<double, R>(queue, usm, x, 0, 0, 0, {}).wait(); }},
        {"__rtkdSSEditMoments", 2, "dSSNewTask dSSEditMoments", [&] { run_raw_moment<double, R>(queue, usm, x, 0, 0, 0, {}).wait(); }},
        // A positive status of the routine counts as a failure too.
        {"_rtkdSSBasic", 1, "dSSNewTask dSSEditTask _rtkdSSBasic", mean_of},
        {"_rtkdSSBasic", -4090, "dSSNewTask dSSEditTask _rtkdSSBasic", mean_of},
        // A failed delete is not retried.
        {"__rtkSSDeleteTask", -1, "dSSNewTask dSSEditTask _rtkdSSBasic SSDeleteTask", mean_of},
        // The call waits for its host task, then frees its temporaries in order.
        {"_rtkdSSBasic", -4052, "dSSNewTask dSSEditMoments dSSEditTask _rtkdSSBasic", [&] { run_kurtosis<double, R>(queue, usm, x, {}); }},
        // A task the dispatcher refuses (no dimension) reaches no routine; temporaries of no
        // dimension do not stop a family before the core library.
        {"", 0, "dSSNewTask dSSEditTask", [&] { run_mean<double, R>(queue, D(0, 6, x), x, {}).wait(); }},
        {"", 0, "dSSNewTask dSSEditMoments dSSEditTask", [&] { run_kurtosis<double, R>(queue, D(0, 6, x), x, {}).wait(); }},
        {"", 0, "dSSNewTask dSSEditTask", [&] { run_max<double, col_major>(queue, {4, 0, x}, x, {}).wait(); }},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.entry) + " returning " + std::to_string(c.status));
        forget();
        core_double::set_status(c.entry, c.status);
        c.run();
        std::string calls;
        for (const core_double::call& e : core_double::calls())
            calls += (calls.empty() ? "" : " ") + e.entry.substr(e.entry[1] == '_' ? 5 : 0);
        EXPECT_EQ(calls, c.calls);
        EXPECT_EQ(handled(), std::vector<std::string>{"tavrel::qnd::stats: computation error"});
        EXPECT_EQ(freed, allocated);
        // Kurtosis (EditMoments, then EditTask) has six temporaries, the others none.
        const bool kurtosis = std::strstr(c.calls, "Moments dSSEditTask") != nullptr;
        EXPECT_EQ(allocated.size(), kurtosis ? 6u : 0u);
    }
    // Success again once the entries answer 0.
    forget();
    mean_of();
    EXPECT_TRUE(handled().empty());
}

}  // namespace
