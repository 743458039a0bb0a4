// The threading layers: their threader entries, their services, and the routines run through
// each layer's table.
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <set>
#include <thread>

#include "core_test_support.hpp"

using namespace core_test;

namespace {

struct visit_log {
    std::mutex m;
    std::vector<int64_t> order;
    std::vector<int> count;
    std::set<int32_t> threads;
    bool bad_thread = false;
};

void record(void* ctx, int64_t i, int32_t t, int32_t nt) {
    auto& log = *static_cast<visit_log*>(ctx);
    std::lock_guard<std::mutex> lock(log.m);
    log.count[i] += 1;
    log.threads.insert(t);
    log.bad_thread = log.bad_thread || t < 0 || t >= nt;
}

void record_order(void* ctx, int64_t i, int32_t, int32_t) {
    auto& log = *static_cast<visit_log*>(ctx);
    std::lock_guard<std::mutex> lock(log.m);
    EXPECT_EQ(log.count[i], 1) << "ordered part ran before the body of " << i;
    log.order.push_back(i);
}

class Layer : public testing::TestWithParam<const char*> {};

TEST_P(Layer, ForRunsEveryIndexOnceOnValidThreads) {
    layer l(GetParam());
    scoped_env env("QND_NUM_THREADS", "3");
    for (int64_t n : {0, 1, 2, 5, 1000}) {
        visit_log log;
        log.count.assign(n, 0);
        l.rows[0].for_each(n, 0, &log, record);
        for (int64_t i = 0; i < n; ++i) {
            EXPECT_EQ(log.count[i], 1) << n << " " << i;
        }
        EXPECT_FALSE(log.bad_thread);
        EXPECT_LE(log.threads.size(), 3u);
    }
    // max_threads bounds the team.
    visit_log log;
    log.count.assign(100, 0);
    l.rows[0].for_each(100, 1, &log, record);
    EXPECT_EQ(log.threads.size(), 1u);
}

TEST_P(Layer, OrderedPartsRunInRisingOrderAfterTheirBodies) {
    layer l(GetParam());
    visit_log log;
    log.count.assign(50, 0);
    l.rows[0].for_ordered(50, 0, &log, record, record_order);
    ASSERT_EQ(log.order.size(), 50u);
    for (int64_t i = 0; i < 50; ++i) {
        EXPECT_EQ(log.order[i], i);
    }
}

TEST_P(Layer, SectionsAndTeams) {
    layer l(GetParam());
    scoped_env env("QND_NUM_THREADS", "2");
    visit_log log;
    log.count.assign(7, 0);
    l.rows[0].sections(7, 0, &log, record);
    for (int c : log.count) {
        EXPECT_EQ(c, 1);
    }
    visit_log team;
    team.count.assign(16, 0);
    l.rows[0].ordered(0, &team, record, record_order);
    const int32_t limit = l.rows[0].get_num_threads_limit();
    ASSERT_EQ(team.order.size(), static_cast<size_t>(limit));
    for (int32_t t = 0; t < limit; ++t) {
        EXPECT_EQ(team.order[t], t);
    }
}

TEST_P(Layer, ThreadLimitFollowsTheEnvironment) {
    layer l(GetParam());
    const bool sequential = std::string(GetParam()).find("sequential") != std::string::npos;
    scoped_env env("QND_NUM_THREADS", "5");
    EXPECT_EQ(l.rows[0].get_num_threads_limit(), sequential ? 1 : 5);
    scoped_env env2("QND_NUM_THREADS", "junk");
    EXPECT_GE(l.rows[0].get_num_threads_limit(), 1);
}

TEST_P(Layer, GetenvAndLock) {
    layer l(GetParam());
    auto getenv_ = l.symbol<int32_t (*)(const char*, char*, int32_t)>("qnd_serv_getenv");
    auto lock = l.symbol<void (*)(int32_t*)>("qnd_serv_lock");
    auto unlock = l.symbol<void (*)(int32_t*)>("qnd_serv_unlock");
    ASSERT_TRUE(getenv_ && lock && unlock);
    scoped_env env("QND_TEST_VALUE", "1abcdef");
    char buffer[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(getenv_("QND_TEST_VALUE", buffer, 4), 7);
    EXPECT_STREQ(buffer, "1ab");
    scoped_env unset("QND_TEST_VALUE", nullptr);
    EXPECT_LE(getenv_("QND_TEST_VALUE", buffer, 4), 0);

    int32_t word = 0;
    int64_t counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                lock(&word);
                ++counter;
                unlock(&word);
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(counter, 80000);
    EXPECT_EQ(word, 0);
}

TEST_P(Layer, PrintsTheNumberedMessages) {
    layer l(GetParam());
    auto print = l.symbol<void (*)(int32_t, int32_t, int32_t, ...)>("qnd_serv_print");
    ASSERT_NE(print, nullptr);
    const struct {
        int32_t kind, number;
        const char* arg;
        const char* want;
    } cases[] = {
        {0, 3, "'omp_get_interop_int'",
         "qnd error: a runtime library this program needs has no entry 'omp_get_interop_int'\n"},
        {1, 771, nullptr,
         "qnd fatal error: the statistics component libqnd_core.so.2 could not be loaded from "
         "the directory of the threading layer\n"},
        {1, 772, "__rtksSSEditSums",
         "qnd fatal error: the statistics component has no entry named __rtksSSEditSums\n"},
    };
    for (const auto& c : cases) {
        testing::internal::CaptureStderr();
        if (c.arg == nullptr) {
            print(c.kind, c.number, 0);
        } else {
            print(c.kind, c.number, 1, c.arg);
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.want);
    }
}

TEST_P(Layer, LoadsTheComponentBesideItself) {
    layer l(GetParam());
    auto load = l.symbol<void* (*)()>("qnd_serv_load_ktn");
    ASSERT_NE(load, nullptr);
    scoped_env env(QND_CORE_LIBRARY_ENV, nullptr);
    void* core = load();
    ASSERT_NE(core, nullptr);
    // The same file as the component this test links.
    EXPECT_EQ(dlsym(core, "__rtkdSSNewTask"), reinterpret_cast<void*>(&__rtkdSSNewTask));
    EXPECT_EQ(load(), core);
}

TEST_P(Layer, ExitEndsTheProcessWithTheCode) {
    layer l(GetParam());
    auto exit_ = l.symbol<void (*)(int32_t)>("qnd_serv_exit");
    ASSERT_NE(exit_, nullptr);
    EXPECT_EXIT(exit_(3), testing::ExitedWithCode(3), "");
}

TEST_P(Layer, RoutinesThroughTheTableMatchTheCallingThread) {
    layer l(GetParam());
    scoped_env env("QND_NUM_THREADS", "2");
    const int64_t dims = 3, n = 300000;
    const std::vector<double> x = offset_normal<double>(dims * n, 10, 2);
    std::vector<double> alone(dims), shared(dims), mn(dims);
    task_fixture<double> f(dims, n, QND_SS_ROW_MAJOR, x.data());
    f.edit(QND_SS_ED_KURTOSIS, alone.data());
    ASSERT_EQ(f.basic(QND_SS_KURTOSIS, 1, nullptr), QND_SS_OK);
    f.edit(QND_SS_ED_KURTOSIS, shared.data());
    f.edit(QND_SS_ED_MIN, mn.data());
    ASSERT_EQ(qnd_ss_compute_d(f.task, QND_SS_KURTOSIS | QND_SS_MIN, 1, l.rows), QND_SS_OK);
    for (int64_t d = 0; d < dims; ++d) {
        EXPECT_NEAR(shared[d], alone[d], 1e-12);
        EXPECT_EQ(mn[d], *std::min_element(x.begin() + d * n, x.begin() + (d + 1) * n));
    }
}

INSTANTIATE_TEST_SUITE_P(Core, Layer, testing::ValuesIn(layer_files));

// A layer copied away from the component finds nothing beside itself, and takes the file
// named by the environment instead.
TEST(LayerElsewhere, ComponentFromTheEnvironment) {
    char dir_template[] = "/tmp/qnd_layer_XXXXXX";
    ASSERT_NE(mkdtemp(dir_template), nullptr);
    const std::string dir = dir_template;
    const std::string copy = dir + "/libqnd_sequential.so.2";
    {
        std::ifstream in(std::string(QND_TEST_LIB_DIR) + "/libqnd_sequential.so.2",
                         std::ios::binary);
        std::ofstream out(copy, std::ios::binary);
        out << in.rdbuf();
    }
    void* h = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(h, nullptr);
    auto load = reinterpret_cast<void* (*)()>(dlsym(h, "qnd_serv_load_ktn"));
    {
        scoped_env env(QND_CORE_LIBRARY_ENV, nullptr);
        EXPECT_EQ(load(), nullptr);
    }
    {
        scoped_env env(QND_CORE_LIBRARY_ENV, (dir + "/no_such_file.so").c_str());
        EXPECT_EQ(load(), nullptr);
    }
    const std::string core = std::string(QND_TEST_LIB_DIR) + "/libqnd_core.so.2";
    scoped_env env(QND_CORE_LIBRARY_ENV, core.c_str());
    void* handle = load();
    ASSERT_NE(handle, nullptr);
    EXPECT_NE(dlsym(handle, "_rtkdSSBasic"), nullptr);
    unlink(copy.c_str());
    rmdir(dir.c_str());
}

}  // namespace
