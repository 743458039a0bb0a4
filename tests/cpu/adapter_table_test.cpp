// What each CPU adapter hands the core library, checked row by row against the recording
// stand-in: the entries called and their order, the arrays in the record when it is computed,
// the mask of estimates and the method value; then the host tasks of the buffer form, the
// temporaries, and failures on both sides.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
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

constexpr std::int64_t n_dims = 3;
constexpr std::int64_t n_observations = 4;

sycl::queue& q() {
    static sycl::queue cpu{sycl::cpu_selector_v};
    return cpu;
}

sycl::buffer<double, 1> empty() {
    return sycl::buffer<double, 1>(sycl::range<1>(0));
}

// Words of the record that hold result arrays: mean (11) to max (29).
constexpr int first_array_word = 11;
constexpr int last_array_word = 29;

const void* word_of(const ss_task& task, int word) {
    return reinterpret_cast<const void* const*>(&task)[word];
}

// What a word of the record must hold when the task is computed: a given pointer, or some
// temporary of the call's own (non-null, none of the caller's).
struct slot {
    int word;
    const void* pointer;  // null: a temporary
};

struct row {
    std::string name;
    std::vector<std::string> entries;  // between NewTask and DeleteTask, "EditTask" with its number
    std::vector<slot> slots;           // all other array words are null
    std::uint64_t mask;
    std::int64_t method;
    int temporaries;  // shared allocations of the pointer form
};

// The bit of the mask under which a routine of the stand-in fills record word `word`.
std::uint64_t bit_of_word(int word) {
    if (word <= 17)
        return std::uint64_t{1} << (word - 11);
    if (word <= 24)
        return std::uint64_t{0x2000000} << (word - 18);
    return std::uint64_t{0x80} << (word - 25);
}

// An entry's name behind its "rtk?SS" prefix, with EditTask's parameter number.
std::string entry_label(const core_double::call& c) {
    std::string name = c.entry.substr(c.entry.find("SS") + 2);
    if (name == "EditTask")
        name += "(" + std::to_string(c.parameter) + ")";
    return name;
}

class adapter_table : public ::testing::Test {
  protected:
    void SetUp() override {
        core_double::reset();
        ext::set_usm_observer([this](ext::usm_op op, void* ptr, std::size_t bytes) {
            if (op == ext::usm_op::malloc_shared && ptr != nullptr)
                allocated.push_back({ptr, bytes});
            if (op == ext::usm_op::free)
                freed.push_back(ptr);
        });
        observations = sycl::malloc_shared<double>(n_dims * n_observations, queue);
        for (std::int64_t k = 0; k < n_dims * n_observations; ++k)
            observations[k] = static_cast<double>(k);
        for (int k = 0; k < 8; ++k) {
            results[k] = sycl::malloc_shared<double>(n_dims, queue);
            for (std::int64_t d = 0; d < n_dims; ++d)
                results[k][d] = -1.0;
        }
        allocated.clear();
    }
    void TearDown() override {
        ext::set_usm_observer({});
        for (double* r : results)
            sycl::free(r, queue);
        sycl::free(observations, queue);
        core_double::reset();
    }

    // Checks the calls recorded since the last reset against `r`.
    void check_row(const row& r) {
        SCOPED_TRACE(r.name);
        const std::vector<core_double::call> calls = core_double::calls();
        ASSERT_GE(calls.size(), 3u);
        EXPECT_EQ(calls.front().entry, "__rtkdSSNewTask");
        EXPECT_EQ(calls.back().entry, "__rtkSSDeleteTask");
        std::vector<std::string> labels;
        for (std::size_t k = 1; k + 1 < calls.size(); ++k)
            labels.push_back(entry_label(calls[k]));
        EXPECT_EQ(labels, r.entries);

        const core_double::call& computed = calls[calls.size() - 2];
        EXPECT_EQ(computed.estimates, r.mask);
        EXPECT_EQ(computed.method, r.method);
        std::map<int, const void*> expected;
        for (const slot& s : r.slots)
            expected[s.word] = s.pointer;
        std::set<const void*> temporaries;
        for (int word = first_array_word; word <= last_array_word; ++word) {
            SCOPED_TRACE(testing::Message() << "record word " << word);
            const void* held = word_of(computed.task, word);
            const auto found = expected.find(word);
            if (found == expected.end()) {
                EXPECT_EQ(held, nullptr);
            } else if (found->second != nullptr) {
                EXPECT_EQ(held, found->second);
            } else {
                EXPECT_NE(held, nullptr);
                for (const double* result : results)
                    EXPECT_NE(held, result);
                temporaries.insert(held);
            }
        }
        EXPECT_EQ(static_cast<int>(temporaries.size()), r.temporaries) << "distinct temporaries";

        // Temporaries: n_dims elements each, all freed in order of allocation.
        ASSERT_EQ(static_cast<int>(allocated.size()), r.temporaries);
        ASSERT_EQ(freed.size(), allocated.size());
        for (std::size_t k = 0; k < allocated.size(); ++k) {
            EXPECT_EQ(allocated[k].second, n_dims * sizeof(double));
            EXPECT_EQ(freed[k], allocated[k].first);
            EXPECT_TRUE(temporaries.count(allocated[k].first));
        }
        // What the stand-in computed reached the caller's arrays; the others are untouched.
        for (const slot& s : r.slots) {
            if (s.pointer == nullptr)
                continue;
            const bool filled = (r.mask & bit_of_word(s.word)) != 0;
            const double* out = static_cast<const double*>(s.pointer);
            for (std::int64_t d = 0; d < n_dims; ++d)
                EXPECT_EQ(out[d], filled ? core_double::marker(s.word, d) : -1.0)
                    << "word " << s.word << " dimension " << d;
        }
    }

    sycl::queue queue{sycl::cpu_selector_v};
    double* observations = nullptr;
    double* results[8] = {};
    std::vector<std::pair<void*, std::size_t>> allocated;
    std::vector<void*> freed;
};

TEST_F(adapter_table, pointer_form_rows) {
    double* const a = results[0];
    double* const b = results[1];
    double* const c = results[2];
    double* const d = results[3];
    double* const m = results[4];  // a caller's mean
    const dataset<row_major, double*> data(n_dims, n_observations, observations);
    const std::vector<sycl::event> none;
    using L = std::integral_constant<layout, row_major>;

    struct call_row {
        row expected;
        std::function<sycl::event()> run;
    };
    const std::vector<call_row> rows = {
        {{"mean", {"EditTask(7)", "Basic"}, {{11, a}}, 0x1, 1, 0},
         [&] { return run_mean<double, L::value>(queue, data, a, none); }},
        {{"min", {"EditTask(16)", "Minmax"}, {{28, a}}, 0x400, 1, 0},
         [&] { return run_min<double, L::value>(queue, data, a, none); }},
        {{"max", {"EditTask(17)", "Minmax"}, {{29, a}}, 0x800, 1, 0},
         [&] { return run_max<double, L::value>(queue, data, a, none); }},
        {{"min_max", {"EditTask(16)", "EditTask(17)", "Minmax"}, {{28, a}, {29, b}}, 0xc00, 1, 0},
         [&] { return run_min_max<double, L::value>(queue, data, a, b, none); }},
        {{"raw_sum, all",
          {"EditSums", "Basic"},
          {{18, a}, {19, b}, {20, c}, {21, d}},
          0x1e000000,
          1,
          0},
         [&] { return run_raw_sum<double, L::value>(queue, data, a, b, c, d, none); }},
        // The order-1 bit stays when s1 is left out.
        {{"raw_sum, s2 and s4", {"EditSums", "Basic"}, {{19, b}, {21, d}}, 0x16000000, 1, 0},
         [&] { return run_raw_sum<double, L::value>(queue, data, nullptr, b, nullptr, d, none); }},
        {{"raw_sum, s3 alone", {"EditSums", "Basic"}, {{20, c}}, 0x0a000000, 1, 0},
         [&] {
             return run_raw_sum<double, L::value>(queue, data, nullptr, nullptr, c, nullptr, none);
         }},
        {{"raw_moment, all",
          {"EditMoments", "Basic"},
          {{11, a}, {12, b}, {13, c}, {14, d}},
          0xf,
          1,
          0},
         [&] { return run_raw_moment<double, L::value>(queue, data, a, b, c, d, none); }},
        {{"raw_moment, r3 alone", {"EditMoments", "Basic"}, {{13, c}}, 0x5, 1, 0},
         [&] {
             return run_raw_moment<double, L::value>(queue, data, nullptr, nullptr, c, nullptr,
                                                     none);
         }},
        // Fast central sums go through the raw moments and tell the core library 2.
        {{"central_sum fast, all",
          {"EditMoments", "EditSums", "Basic"},
          {{11, nullptr}, {12, nullptr}, {13, nullptr}, {14, nullptr}, {22, a}, {23, b}, {24, c}},
          0xe0000000,
          2,
          4},
         [&] { return run_central_sum<1, double, L::value>(queue, data, a, b, c, none); }},
        {{"central_sum fast, cs2 and cs4",
          {"EditMoments", "EditSums", "Basic"},
          {{11, nullptr}, {12, nullptr}, {14, nullptr}, {22, a}, {24, c}},
          0xa0000000,
          2,
          3},
         [&] { return run_central_sum<1, double, L::value>(queue, data, a, nullptr, c, none); }},
        {{"central_sum fast, cs3 alone",
          {"EditMoments", "EditSums", "Basic"},
          {{11, nullptr}, {12, nullptr}, {13, nullptr}, {23, b}},
          0x60000000,
          2,
          3},
         [&] {
             return run_central_sum<1, double, L::value>(queue, data, nullptr, b, nullptr, none);
         }},
        {{"central_sum alternate",
          {"EditTask(7)", "EditSums", "Basic"},
          {{11, nullptr}, {22, a}, {23, b}, {24, c}},
          0xe0000000,
          2,
          1},
         [&] { return run_central_sum<2, double, L::value>(queue, data, a, b, c, none); }},
        {{"central_sum alternate, cs4 alone",
          {"EditTask(7)", "EditSums", "Basic"},
          {{11, nullptr}, {24, c}},
          0xa0000000,
          2,
          1},
         [&] {
             return run_central_sum<2, double, L::value>(queue, data, nullptr, nullptr, c, none);
         }},
        {{"central_sum, given mean",
          {"EditTask(7)", "EditSums", "Basic"},
          {{11, m}, {22, a}, {23, b}},
          0x60000000,
          256,
          0},
         [&] { return run_central_sum<double, L::value>(queue, m, data, a, b, nullptr, none); }},
        {{"central_moment fast, all",
          {"EditMoments", "Basic"},
          {{11, nullptr}, {12, nullptr}, {13, nullptr}, {14, nullptr}, {15, a}, {16, b}, {17, c}},
          0x70,
          1,
          4},
         [&] { return run_central_moment<1, double, L::value>(queue, data, a, b, c, none); }},
        {{"central_moment fast, c2 alone",
          {"EditMoments", "Basic"},
          {{11, nullptr}, {12, nullptr}, {15, a}},
          0x10,
          1,
          2},
         [&] {
             return run_central_moment<1, double, L::value>(queue, data, a, nullptr, nullptr, none);
         }},
        {{"central_moment alternate, c4 alone",
          {"EditMoments", "Basic"},
          {{11, nullptr}, {12, nullptr}, {14, nullptr}, {17, c}},
          0x50,
          2,
          3},
         [&] {
             return run_central_moment<2, double, L::value>(queue, data, nullptr, nullptr, c, none);
         }},
        {{"central_moment, given mean",
          {"EditMoments", "Basic"},
          {{11, m}, {12, nullptr}, {13, nullptr}, {15, a}, {16, b}},
          0x30,
          256,
          2},
         [&] { return run_central_moment<double, L::value>(queue, m, data, a, b, nullptr, none); }},
        {{"skewness",
          {"EditMoments", "EditTask(15)", "Basic"},
          {{11, nullptr}, {12, nullptr}, {13, nullptr}, {15, nullptr}, {16, nullptr}, {26, a}},
          0x100,
          1,
          5},
         [&] { return run_skewness<double, L::value>(queue, data, a, none); }},
        {{"skewness, given mean",
          {"EditMoments", "EditTask(15)", "Basic"},
          {{11, m}, {12, nullptr}, {13, nullptr}, {15, nullptr}, {16, nullptr}, {26, a}},
          0x100,
          256,
          4},
         [&] { return run_skewness<double, L::value>(queue, m, data, a, none); }},
        {{"kurtosis",
          {"EditMoments", "EditTask(14)", "Basic"},
          {{11, nullptr},
           {12, nullptr},
           {13, nullptr},
           {14, nullptr},
           {15, nullptr},
           {17, nullptr},
           {25, a}},
          0x80,
          1,
          6},
         [&] { return run_kurtosis<double, L::value>(queue, data, a, none); }},
        {{"kurtosis, given mean",
          {"EditMoments", "EditTask(14)", "Basic"},
          {{11, m},
           {12, nullptr},
           {13, nullptr},
           {14, nullptr},
           {15, nullptr},
           {17, nullptr},
           {25, a}},
          0x80,
          256,
          5},
         [&] { return run_kurtosis<double, L::value>(queue, m, data, a, none); }},
        {{"variation",
          {"EditMoments", "EditTask(18)", "Basic"},
          {{11, nullptr}, {12, nullptr}, {15, nullptr}, {27, a}},
          0x200,
          1,
          3},
         [&] { return run_variation<double, L::value>(queue, data, a, none); }},
        {{"variation, given mean",
          {"EditMoments", "EditTask(18)", "Basic"},
          {{11, m}, {12, nullptr}, {15, nullptr}, {27, a}},
          0x200,
          256,
          2},
         [&] { return run_variation<double, L::value>(queue, m, data, a, none); }},
    };
    for (const call_row& r : rows) {
        for (double* result : results)
            std::fill(result, result + n_dims, -1.0);
        core_double::reset();
        allocated.clear();
        freed.clear();
        r.run().wait();
        check_row(r.expected);
        // The task was made from the dataset with 64-bit integers.
        const core_double::call made = core_double::calls().front();
        EXPECT_EQ(made.task.int_width, 1u);
        EXPECT_EQ(made.n_dims, n_dims);
        EXPECT_EQ(made.n_observations, n_observations);
        EXPECT_EQ(made.storage, row_major);
        EXPECT_EQ(made.task.observations, observations);
        EXPECT_EQ(made.task.weights, nullptr);
        EXPECT_EQ(made.task.indices, nullptr);
    }
}

// The buffer form: the same adapters with placeholder accessors. Record words are checked for
// being set or null (buffer storage has no address the test knows beforehand); the caller's
// results show where each array went.
struct buffer_row {
    std::string name;
    std::vector<std::string> entries;
    std::set<int> set_words;  // all other array words are null
    std::uint64_t mask;
    std::int64_t method;
    std::vector<std::pair<int, int>> given;  // (result number, its record word)
    std::function<void(const dataset<row_major, sycl::buffer<double, 1>>&,
                       std::array<sycl::buffer<double, 1>, 4>&,
                       sycl::buffer<double, 1>&)>
        run;
};

TEST_F(adapter_table, buffer_form_rows) {
    using B = sycl::buffer<double, 1>;
    using D = dataset<row_major, B>;
    using R = std::array<B, 4>;
    const std::vector<buffer_row> rows = {
        {"mean",
         {"EditTask(7)", "Basic"},
         {11},
         0x1,
         1,
         {{0, 11}},
         [](const D& d, R& r, B&) { run_mean<double, row_major>(q(), d, r[0]); }},
        {"min",
         {"EditTask(16)", "Minmax"},
         {28},
         0x400,
         1,
         {{0, 28}},
         [](const D& d, R& r, B&) { run_min<double, row_major>(q(), d, r[0]); }},
        {"max",
         {"EditTask(17)", "Minmax"},
         {29},
         0x800,
         1,
         {{0, 29}},
         [](const D& d, R& r, B&) { run_max<double, row_major>(q(), d, r[0]); }},
        {"min_max",
         {"EditTask(16)", "EditTask(17)", "Minmax"},
         {28, 29},
         0xc00,
         1,
         {{0, 28}, {1, 29}},
         [](const D& d, R& r, B&) { run_min_max<double, row_major>(q(), d, r[0], r[1]); }},
        {"raw_sum, s2 and s4",
         {"EditSums", "Basic"},
         {19, 21},
         0x16000000,
         1,
         {{1, 19}, {3, 21}},
         [](const D& d, R& r, B&) {
             run_raw_sum<double, row_major>(q(), d, empty(), r[1], empty(), r[3]);
         }},
        {"raw_moment, r3 alone",
         {"EditMoments", "Basic"},
         {13},
         0x5,
         1,
         {{2, 13}},
         [](const D& d, R& r, B&) {
             run_raw_moment<double, row_major>(q(), d, empty(), empty(), r[2], empty());
         }},
        // Method 1 in this form; r3 and cs3 (a filler here) go along with order 4.
        {"central_sum fast, cs2 and cs4",
         {"EditMoments", "EditSums", "Basic"},
         {11, 12, 13, 14, 22, 23, 24},
         0xa0000000,
         1,
         {{0, 22}, {2, 24}},
         [](const D& d, R& r, B&) {
             run_central_sum<1, double, row_major>(q(), d, r[0], empty(), r[2]);
         }},
        {"central_sum fast, cs2 alone",
         {"EditMoments", "EditSums", "Basic"},
         {11, 12, 22},
         0x20000000,
         1,
         {{0, 22}},
         [](const D& d, R& r, B&) {
             run_central_sum<1, double, row_major>(q(), d, r[0], empty(), empty());
         }},
        {"central_sum alternate, cs4 alone",
         {"EditTask(7)", "EditSums", "Basic"},
         {11, 23, 24},
         0xa0000000,
         2,
         {{2, 24}},
         [](const D& d, R& r, B&) {
             run_central_sum<2, double, row_major>(q(), d, empty(), empty(), r[2]);
         }},
        {"central_sum, given mean, cs3 alone",
         {"EditTask(7)", "EditSums", "Basic"},
         {11, 23},
         0x60000000,
         256,
         {{1, 23}},
         [](const D& d, R& r, B& m) {
             run_central_sum<double, row_major>(q(), m, d, empty(), r[1], empty());
         }},
        // Only r3 goes along with order 4 here: the filler of c3 stays out.
        {"central_moment fast, c4 alone",
         {"EditMoments", "Basic"},
         {11, 12, 13, 14, 17},
         0x50,
         1,
         {{2, 17}},
         [](const D& d, R& r, B&) {
             run_central_moment<1, double, row_major>(q(), d, empty(), empty(), r[2]);
         }},
        {"central_moment alternate, all",
         {"EditMoments", "Basic"},
         {11, 12, 13, 14, 15, 16, 17},
         0x70,
         2,
         {{0, 15}, {1, 16}, {2, 17}},
         [](const D& d, R& r, B&) {
             run_central_moment<2, double, row_major>(q(), d, r[0], r[1], r[2]);
         }},
        {"central_moment, given mean, c2 alone",
         {"EditMoments", "Basic"},
         {11, 12, 15},
         0x10,
         256,
         {{0, 15}},
         [](const D& d, R& r, B& m) {
             run_central_moment<double, row_major>(q(), m, d, r[0], empty(), empty());
         }},
        {"skewness",
         {"EditMoments", "EditTask(15)", "Basic"},
         {11, 12, 13, 15, 16, 26},
         0x100,
         1,
         {{0, 26}},
         [](const D& d, R& r, B&) { run_skewness<double, row_major>(q(), d, r[0]); }},
        {"skewness, given mean",
         {"EditMoments", "EditTask(15)", "Basic"},
         {11, 12, 13, 15, 16, 26},
         0x100,
         256,
         {{0, 26}},
         [](const D& d, R& r, B& m) { run_skewness<double, row_major>(q(), m, d, r[0]); }},
        {"kurtosis",
         {"EditMoments", "EditTask(14)", "Basic"},
         {11, 12, 13, 14, 15, 17, 25},
         0x80,
         1,
         {{0, 25}},
         [](const D& d, R& r, B&) { run_kurtosis<double, row_major>(q(), d, r[0]); }},
        {"kurtosis, given mean",
         {"EditMoments", "EditTask(14)", "Basic"},
         {11, 12, 13, 14, 15, 17, 25},
         0x80,
         256,
         {{0, 25}},
         [](const D& d, R& r, B& m) { run_kurtosis<double, row_major>(q(), m, d, r[0]); }},
        {"variation",
         {"EditMoments", "EditTask(18)", "Basic"},
         {11, 12, 15, 27},
         0x200,
         1,
         {{0, 27}},
         [](const D& d, R& r, B&) { run_variation<double, row_major>(q(), d, r[0]); }},
        {"variation, given mean",
         {"EditMoments", "EditTask(18)", "Basic"},
         {11, 12, 15, 27},
         0x200,
         256,
         {{0, 27}},
         [](const D& d, R& r, B& m) { run_variation<double, row_major>(q(), m, d, r[0]); }},
    };
    std::vector<double> x(n_dims * n_observations, 1.0);
    for (const buffer_row& r : rows) {
        SCOPED_TRACE(r.name);
        core_double::reset();
        std::array<std::vector<double>, 4> results_host;
        std::vector<double> mean_host(n_dims, 0.5);
        {
            for (auto& h : results_host)
                h.assign(n_dims, -1.0);
            B xb(x.data(), sycl::range<1>(x.size()));
            const D data(n_dims, n_observations, xb);
            R out = {B(results_host[0].data(), sycl::range<1>(n_dims)),
                     B(results_host[1].data(), sycl::range<1>(n_dims)),
                     B(results_host[2].data(), sycl::range<1>(n_dims)),
                     B(results_host[3].data(), sycl::range<1>(n_dims))};
            B mean(mean_host.data(), sycl::range<1>(n_dims));
            r.run(data, out, mean);
        }
        const std::vector<core_double::call> calls = core_double::calls();
        ASSERT_GE(calls.size(), 3u);
        EXPECT_EQ(calls.front().entry, "__rtkdSSNewTask");
        EXPECT_EQ(calls.back().entry, "__rtkSSDeleteTask");
        std::vector<std::string> labels;
        for (std::size_t k = 1; k + 1 < calls.size(); ++k)
            labels.push_back(entry_label(calls[k]));
        EXPECT_EQ(labels, r.entries);
        const core_double::call& computed = calls[calls.size() - 2];
        EXPECT_EQ(computed.estimates, r.mask);
        EXPECT_EQ(computed.method, r.method);
        for (int word = first_array_word; word <= last_array_word; ++word)
            EXPECT_EQ(word_of(computed.task, word) != nullptr, r.set_words.count(word) == 1)
                << "record word " << word;
        for (const auto& [k, word] : r.given)
            for (std::int64_t d = 0; d < n_dims; ++d)
                EXPECT_EQ(results_host[k][d],
                          (r.mask & bit_of_word(word)) ? core_double::marker(word, d) : -1.0)
                    << "result " << k << " dimension " << d;
        EXPECT_EQ(mean_host, std::vector<double>(n_dims, 0.5)) << "the caller's mean is read only";
    }
}

// The buffer form has one host task per combination of weights and mask; absent ones reach the
// core library as null, and the mask reaches it as given.
TEST_F(adapter_table, buffer_form_hands_on_weights_and_mask_only_when_present) {
    using B = sycl::buffer<double, 1>;
    using I = sycl::buffer<std::int64_t, 1>;
    std::vector<double> x(n_dims * n_observations, 1.0);
    std::vector<double> w(n_observations, 2.0);
    std::vector<std::int64_t> keep = {1, 0, 1};
    for (bool weighted : {false, true}) {
        for (bool masked : {false, true}) {
            SCOPED_TRACE(testing::Message() << "weights " << weighted << ", mask " << masked);
            core_double::reset();
            std::vector<double> out(n_dims, -1.0);
            {
                B xb(x.data(), sycl::range<1>(x.size()));
                B wb = weighted ? B(w.data(), sycl::range<1>(w.size())) : B(sycl::range<1>(0));
                I ib = masked ? I(keep.data(), sycl::range<1>(keep.size())) : I(sycl::range<1>(0));
                const dataset<col_major, B> data(n_dims, n_observations, xb, wb, ib);
                run_mean<double, col_major>(queue, data, B(out.data(), sycl::range<1>(n_dims)));
            }
            const core_double::call made = core_double::calls().at(0);
            EXPECT_EQ(made.entry, "__rtkdSSNewTask");
            EXPECT_EQ(made.task.int_width, 1u);
            EXPECT_EQ(made.n_dims, n_dims);
            EXPECT_EQ(made.n_observations, n_observations);
            EXPECT_EQ(made.storage, col_major);
            EXPECT_NE(made.task.observations, nullptr);
            EXPECT_EQ(made.task.weights != nullptr, weighted);
            EXPECT_EQ(made.task.indices != nullptr, masked);
            for (std::int64_t d = 0; d < n_dims; ++d)
                EXPECT_EQ(out[d], masked && keep[d] == 0 ? -1.0 : core_double::marker(11, d));
        }
    }
}

// Single precision goes through the s entries with the same table.
TEST_F(adapter_table, single_precision_uses_the_s_entries) {
    float* x = sycl::malloc_shared<float>(n_dims * n_observations, queue);
    float* out = sycl::malloc_shared<float>(n_dims, queue);
    const dataset<col_major, float*> data(n_dims, n_observations, x);
    run_central_moment<2, float, col_major>(queue, data, out, nullptr, nullptr, {}).wait();
    std::vector<std::string> entries;
    for (const core_double::call& c : core_double::calls())
        entries.push_back(c.entry);
    EXPECT_EQ(entries, (std::vector<std::string>{"__rtksSSNewTask", "__rtksSSEditMoments",
                                                 "_rtksSSBasic", "__rtkSSDeleteTask"}));
    EXPECT_EQ(core_double::calls().at(2).method, 2);
    EXPECT_EQ(core_double::calls().at(0).storage, col_major);
    for (std::int64_t d = 0; d < n_dims; ++d)
        EXPECT_EQ(out[d], static_cast<float>(core_double::marker(15, d)));
    sycl::free(out, queue);
    sycl::free(x, queue);
}

}  // namespace
