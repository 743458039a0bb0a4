// What each CPU adapter hands the core library, one row per call of either form, checked against
// the recording stand-in: the entries called in order, the result words of the record when it is
// computed, the mask and the method value, the temporaries and where the results went; then the
// weights and mask of the buffer form, and single precision.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
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
using core_double::bit_of_word;
using core_double::marker;
namespace ext = sycl::ext::hostsycl;
using B = sycl::buffer<double, 1>;

constexpr std::int64_t n_dims = 3;
constexpr std::int64_t n_observations = 4;

// One call and what must reach the core library. `words` lists the result words (11 to 29) that
// the record holds when it is computed: a to d name the caller's results, m a mean of the
// caller's, t a temporary of the call's own; every other word is null.
struct row {
    bool buffer_form;
    const char* name;     // the family first
    const char* entries;  // between NewTask and DeleteTask, EditTask with its parameter
    const char* words;
    std::uint64_t mask;
    std::int64_t method;
    std::function<void()> run;
};

class adapters : public ::testing::Test {
  protected:
    void SetUp() override {
        ext::set_usm_observer([this](ext::usm_op op, void* ptr, std::size_t bytes) {
            if (op == ext::usm_op::malloc_shared && ptr != nullptr)
                allocated.push_back({ptr, bytes});
            if (op == ext::usm_op::free)
                freed.push_back(ptr);
        });
    }
    void TearDown() override {
        ext::set_usm_observer({});
        for (double* r : results)
            sycl::free(r, queue);
        sycl::free(x, queue);
        core_double::reset();
    }
    void forget() {
        core_double::reset();
        allocated.clear();
        freed.clear();
    }

    // The buffer form over the fixture's arrays, open while a row runs.
    const dataset<row_major, B>& buffers() { return open->data; }
    B& buffer(int k) { return open->results[k]; }
    static B none() { return B(sycl::range<1>(0)); }

    void check(const row& r);
    void check_allocation_failures(const row& r, std::size_t temporaries);

    sycl::queue queue{sycl::cpu_selector_v};
    double* x = sycl::malloc_shared<double>(n_dims * n_observations, queue);
    double* results[5] = {
        sycl::malloc_shared<double>(n_dims, queue), sycl::malloc_shared<double>(n_dims, queue),
        sycl::malloc_shared<double>(n_dims, queue), sycl::malloc_shared<double>(n_dims, queue),
        sycl::malloc_shared<double>(n_dims, queue)};  // a, b, c, d and m
    const dataset<row_major, double*> usm{n_dims, n_observations, x};
    struct buffer_set {
        dataset<row_major, B> data;
        std::vector<B> results;
    };
    std::optional<buffer_set> open;
    std::vector<std::pair<void*, std::size_t>> allocated;
    std::vector<void*> freed;
};

void adapters::check(const row& r) {
    SCOPED_TRACE(std::string(r.buffer_form ? "buffer form, " : "pointer form, ") + r.name);
    forget();
    for (double* result : results)
        std::fill(result, result + n_dims, -1.0);
    if (r.buffer_form) {
        open.emplace(buffer_set{{n_dims, n_observations, B(x, n_dims * n_observations)}, {}});
        for (double* result : results)
            open->results.emplace_back(result, sycl::range<1>(n_dims));
    }
    r.run();
    open.reset();

    // The entries in order, and a task made from the dataset with 64-bit integers.
    const std::vector<core_double::call> calls = core_double::calls();
    ASSERT_GE(calls.size(), 3u);
    std::string labels;
    for (const core_double::call& c : calls) {
        const std::string name = c.entry.substr(c.entry.find("SS") + 2);
        labels += (labels.empty() ? "" : " ") + name +
                  (name == "EditTask" ? std::to_string(c.parameter) : "");
    }
    EXPECT_EQ(labels, std::string("NewTask ") + r.entries + " DeleteTask");
    const core_double::call& made = calls.front();
    EXPECT_EQ(made.entry, "__rtkdSSNewTask");
    EXPECT_EQ(
        std::make_tuple(made.task.int_width, made.n_dims, made.n_observations, made.storage,
                        made.task.weights, made.task.indices),
        std::make_tuple(1u, n_dims, n_observations, std::int64_t{row_major}, nullptr, nullptr));
    EXPECT_EQ(made.task.observations, r.buffer_form ? made.task.observations : x);

    const core_double::call& computed = calls[calls.size() - 2];
    EXPECT_EQ(computed.estimates, r.mask);
    EXPECT_EQ(computed.method, r.method);
    char holder[30] = {};
    std::istringstream spec(r.words);
    for (std::string w; spec >> w;)
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
            EXPECT_TRUE(r.buffer_form || held == results[k]);
            // What the stand-in computed reached the caller's arrays; the others are untouched.
            for (std::int64_t d = 0; d < n_dims && (r.mask & bit_of_word(word)) != 0; ++d)
                want[k][d] = marker(word, d);
        }
    }
    for (int k = 0; k < 5; ++k)
        EXPECT_EQ(std::vector<double>(results[k], results[k] + n_dims), want[k]) << "result " << k;
    // Temporaries of the pointer form: one shared array of n_dims each, freed in order of
    // allocation. The buffer form has none of them.
    ASSERT_EQ(allocated.size(), r.buffer_form ? 0u : temporaries.size());
    EXPECT_EQ(freed.size(), allocated.size());
    for (std::size_t k = 0; k < allocated.size(); ++k) {
        EXPECT_EQ(allocated[k].second, n_dims * sizeof(double));
        EXPECT_EQ(temporaries.count(freed.at(k)), 1u);
        EXPECT_EQ(freed.at(k), allocated[k].first);
    }
    if (!r.buffer_form)
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
            r.run();
            ADD_FAILURE() << "no exception";
        } catch (const tavrel::qnd::device_bad_alloc& e) {
            EXPECT_EQ(std::string(e.what()),
                      "tavrel::qnd::rng::" + family + ": cannot allocate memory on " + device);
        }
        ext::fail_next_allocations(0);
        EXPECT_EQ(allocated.size(), temporaries - failing);
        EXPECT_EQ(freed.size(), allocated.size());
        for (std::size_t k = 0; k < freed.size(); ++k)
            EXPECT_EQ(freed[k], allocated.at(k).first);
        EXPECT_TRUE(core_double::calls().empty());
    }
}

TEST_F(adapters, hand_the_core_library_the_arrays_mask_and_method_of_each_call) {
    double *const a = results[0], *const b = results[1], *const c = results[2];
    double *const d = results[3], *const m = results[4];
    constexpr layout R = row_major;
    const std::vector<row> rows = {
        {false, "mean", "EditTask7 Basic", "11a", 0x1, 1,
         [&] { run_mean<double, R>(queue, usm, a, {}).wait(); }},
        {false, "min", "EditTask16 Minmax", "28a", 0x400, 1,
         [&] { run_min<double, R>(queue, usm, a, {}).wait(); }},
        {false, "max", "EditTask17 Minmax", "29a", 0x800, 1,
         [&] { run_max<double, R>(queue, usm, a, {}).wait(); }},
        {false, "min_max", "EditTask16 EditTask17 Minmax", "28a 29b", 0xc00, 1,
         [&] { run_min_max<double, R>(queue, usm, a, b, {}).wait(); }},
        {false, "raw_sum, all", "EditSums Basic", "18a 19b 20c 21d", 0x1e000000, 1,
         [&] { run_raw_sum<double, R>(queue, usm, a, b, c, d, {}).wait(); }},
        // The order-1 bit stays when s1 is left out.
        {false, "raw_sum, s2 and s4", "EditSums Basic", "19b 21d", 0x16000000, 1,
         [&] { run_raw_sum<double, R>(queue, usm, nullptr, b, nullptr, d, {}).wait(); }},
        {false, "raw_sum, s3", "EditSums Basic", "20c", 0x0a000000, 1,
         [&] { run_raw_sum<double, R>(queue, usm, nullptr, nullptr, c, nullptr, {}).wait(); }},
        {false, "raw_moment, all", "EditMoments Basic", "11a 12b 13c 14d", 0xf, 1,
         [&] { run_raw_moment<double, R>(queue, usm, a, b, c, d, {}).wait(); }},
        {false, "raw_moment, r3", "EditMoments Basic", "13c", 0x5, 1,
         [&] { run_raw_moment<double, R>(queue, usm, nullptr, nullptr, c, nullptr, {}).wait(); }},
        // Fast central sums go through the raw moments and tell the core library 2.
        {false, "central_sum fast, all", "EditMoments EditSums Basic",
         "11t 12t 13t 14t 22a 23b 24c", 0xe0000000, 2,
         [&] { run_central_sum<1, double, R>(queue, usm, a, b, c, {}).wait(); }},
        {false, "central_sum fast, cs2 and cs4", "EditMoments EditSums Basic",
         "11t 12t 14t 22a 24c", 0xa0000000, 2,
         [&] { run_central_sum<1, double, R>(queue, usm, a, nullptr, c, {}).wait(); }},
        {false, "central_sum fast, cs3", "EditMoments EditSums Basic", "11t 12t 13t 23b",
         0x60000000, 2,
         [&] { run_central_sum<1, double, R>(queue, usm, nullptr, b, nullptr, {}).wait(); }},
        {false, "central_sum alternate, all", "EditTask7 EditSums Basic", "11t 22a 23b 24c",
         0xe0000000, 2, [&] { run_central_sum<2, double, R>(queue, usm, a, b, c, {}).wait(); }},
        {false, "central_sum alternate, cs4", "EditTask7 EditSums Basic", "11t 24c", 0xa0000000, 2,
         [&] { run_central_sum<2, double, R>(queue, usm, nullptr, nullptr, c, {}).wait(); }},
        {false, "central_sum, mean", "EditTask7 EditSums Basic", "11m 22a 23b", 0x60000000, 256,
         [&] { run_central_sum<double, R>(queue, m, usm, a, b, nullptr, {}).wait(); }},
        {false, "central_moment fast, all", "EditMoments Basic", "11t 12t 13t 14t 15a 16b 17c",
         0x70, 1, [&] { run_central_moment<1, double, R>(queue, usm, a, b, c, {}).wait(); }},
        {false, "central_moment fast, c2", "EditMoments Basic", "11t 12t 15a", 0x10, 1,
         [&] { run_central_moment<1, double, R>(queue, usm, a, nullptr, nullptr, {}).wait(); }},
        {false, "central_moment alternate, c4", "EditMoments Basic", "11t 12t 14t 17c", 0x50, 2,
         [&] { run_central_moment<2, double, R>(queue, usm, nullptr, nullptr, c, {}).wait(); }},
        {false, "central_moment, mean", "EditMoments Basic", "11m 12t 13t 15a 16b", 0x30, 256,
         [&] { run_central_moment<double, R>(queue, m, usm, a, b, nullptr, {}).wait(); }},
        {false, "skewness", "EditMoments EditTask15 Basic", "11t 12t 13t 15t 16t 26a", 0x100, 1,
         [&] { run_skewness<double, R>(queue, usm, a, {}).wait(); }},
        {false, "skewness, mean", "EditMoments EditTask15 Basic", "11m 12t 13t 15t 16t 26a", 0x100,
         256, [&] { run_skewness<double, R>(queue, m, usm, a, {}).wait(); }},
        {false, "kurtosis", "EditMoments EditTask14 Basic", "11t 12t 13t 14t 15t 17t 25a", 0x80, 1,
         [&] { run_kurtosis<double, R>(queue, usm, a, {}).wait(); }},
        {false, "kurtosis, mean", "EditMoments EditTask14 Basic", "11m 12t 13t 14t 15t 17t 25a",
         0x80, 256, [&] { run_kurtosis<double, R>(queue, m, usm, a, {}).wait(); }},
        {false, "variation", "EditMoments EditTask18 Basic", "11t 12t 15t 27a", 0x200, 1,
         [&] { run_variation<double, R>(queue, usm, a, {}).wait(); }},
        {false, "variation, mean", "EditMoments EditTask18 Basic", "11m 12t 15t 27a", 0x200, 256,
         [&] { run_variation<double, R>(queue, m, usm, a, {}).wait(); }},

        {true, "mean", "EditTask7 Basic", "11a", 0x1, 1,
         [&] { run_mean<double, R>(queue, buffers(), buffer(0)); }},
        {true, "min", "EditTask16 Minmax", "28a", 0x400, 1,
         [&] { run_min<double, R>(queue, buffers(), buffer(0)); }},
        {true, "max", "EditTask17 Minmax", "29a", 0x800, 1,
         [&] { run_max<double, R>(queue, buffers(), buffer(0)); }},
        {true, "min_max", "EditTask16 EditTask17 Minmax", "28a 29b", 0xc00, 1,
         [&] { run_min_max<double, R>(queue, buffers(), buffer(0), buffer(1)); }},
        {true, "raw_sum, s2 and s4", "EditSums Basic", "19b 21d", 0x16000000, 1,
         [&] { run_raw_sum<double, R>(queue, buffers(), none(), buffer(1), none(), buffer(3)); }},
        {true, "raw_moment, r3", "EditMoments Basic", "13c", 0x5, 1,
         [&] { run_raw_moment<double, R>(queue, buffers(), none(), none(), buffer(2), none()); }},
        // Method 1 in this form; r3 and cs3 (a filler here) go along with order 4.
        {true, "central_sum fast, cs2 and cs4", "EditMoments EditSums Basic",
         "11t 12t 13t 14t 22a 23t 24c", 0xa0000000, 1,
         [&] { run_central_sum<1, double, R>(queue, buffers(), buffer(0), none(), buffer(2)); }},
        {true, "central_sum fast, cs2", "EditMoments EditSums Basic", "11t 12t 22a", 0x20000000, 1,
         [&] { run_central_sum<1, double, R>(queue, buffers(), buffer(0), none(), none()); }},
        {true, "central_sum alternate, cs4", "EditTask7 EditSums Basic", "11t 23t 24c", 0xa0000000,
         2, [&] { run_central_sum<2, double, R>(queue, buffers(), none(), none(), buffer(2)); }},
        {true, "central_sum, mean, cs3", "EditTask7 EditSums Basic", "11m 23b", 0x60000000, 256,
         [&] {
             run_central_sum<double, R>(queue, buffer(4), buffers(), none(), buffer(1), none());
         }},
        // Only r3 goes along with order 4 here: the filler of c3 stays out.
        {true, "central_moment fast, c4", "EditMoments Basic", "11t 12t 13t 14t 17c", 0x50, 1,
         [&] { run_central_moment<1, double, R>(queue, buffers(), none(), none(), buffer(2)); }},
        {true, "central_moment alternate, all", "EditMoments Basic", "11t 12t 13t 14t 15a 16b 17c",
         0x70, 2,
         [&] {
             run_central_moment<2, double, R>(queue, buffers(), buffer(0), buffer(1), buffer(2));
         }},
        {true, "central_moment, mean, c2", "EditMoments Basic", "11m 12t 15a", 0x10, 256,
         [&] {
             run_central_moment<double, R>(queue, buffer(4), buffers(), buffer(0), none(), none());
         }},
        {true, "skewness", "EditMoments EditTask15 Basic", "11t 12t 13t 15t 16t 26a", 0x100, 1,
         [&] { run_skewness<double, R>(queue, buffers(), buffer(0)); }},
        {true, "skewness, mean", "EditMoments EditTask15 Basic", "11m 12t 13t 15t 16t 26a", 0x100,
         256, [&] { run_skewness<double, R>(queue, buffer(4), buffers(), buffer(0)); }},
        {true, "kurtosis", "EditMoments EditTask14 Basic", "11t 12t 13t 14t 15t 17t 25a", 0x80, 1,
         [&] { run_kurtosis<double, R>(queue, buffers(), buffer(0)); }},
        {true, "kurtosis, mean", "EditMoments EditTask14 Basic", "11m 12t 13t 14t 15t 17t 25a",
         0x80, 256, [&] { run_kurtosis<double, R>(queue, buffer(4), buffers(), buffer(0)); }},
        {true, "variation", "EditMoments EditTask18 Basic", "11t 12t 15t 27a", 0x200, 1,
         [&] { run_variation<double, R>(queue, buffers(), buffer(0)); }},
        {true, "variation, mean", "EditMoments EditTask18 Basic", "11m 12t 15t 27a", 0x200, 256,
         [&] { run_variation<double, R>(queue, buffer(4), buffers(), buffer(0)); }},
    };
    for (const row& r : rows)
        check(r);
}

// The buffer form has one host task per combination of weights and mask; absent ones reach the
// core library as null, the mask as given, and the layout of the dataset with it.
TEST_F(adapters, buffer_form_hands_on_weights_and_mask_only_when_present) {
    using I = sycl::buffer<std::int64_t, 1>;
    std::vector<double> w(n_observations, 2.0);
    std::vector<std::int64_t> keep = {1, 0, 1};
    for (bool weighted : {false, true}) {
        for (bool masked : {false, true}) {
            SCOPED_TRACE(testing::Message() << "weights " << weighted << ", mask " << masked);
            core_double::reset();
            std::vector<double> out(n_dims, -1.0);
            {
                B wb = weighted ? B(w.data(), sycl::range<1>(w.size())) : none();
                I ib = masked ? I(keep.data(), sycl::range<1>(keep.size())) : I(sycl::range<1>(0));
                const dataset<col_major, B> data(n_dims, n_observations,
                                                 B(x, n_dims * n_observations), wb, ib);
                run_mean<double, col_major>(queue, data, B(out.data(), sycl::range<1>(n_dims)));
            }
            const core_double::call made = core_double::calls().at(0);
            EXPECT_EQ(made.storage, col_major);
            EXPECT_EQ(made.task.weights != nullptr, weighted);
            EXPECT_EQ(made.task.indices != nullptr, masked);
            for (std::int64_t d = 0; d < n_dims; ++d)
                EXPECT_EQ(out[d], masked && keep[d] == 0 ? -1.0 : marker(11, d));
        }
    }
}

// Single precision goes through the s entries with the same table.
TEST_F(adapters, single_precision_uses_the_s_entries) {
    float* fx = sycl::malloc_shared<float>(n_dims * n_observations, queue);
    float* out = sycl::malloc_shared<float>(n_dims, queue);
    const dataset<col_major, float*> data(n_dims, n_observations, fx);
    run_central_moment<2, float, col_major>(queue, data, out, nullptr, nullptr, {}).wait();
    EXPECT_EQ(core_double::entries(),
              (std::vector<std::string>{"__rtksSSNewTask", "__rtksSSEditMoments", "_rtksSSBasic",
                                        "__rtkSSDeleteTask"}));
    EXPECT_EQ(core_double::calls().at(2).method, 2);
    for (std::int64_t d = 0; d < n_dims; ++d)
        EXPECT_EQ(out[d], static_cast<float>(marker(15, d)));
    sycl::free(out, queue);
    sycl::free(fx, queue);
}

}  // namespace
