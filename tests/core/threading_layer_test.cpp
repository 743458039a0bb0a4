// The threading layers' threader entries and services (accuracy_test.cpp runs the routines
// through each layer's table).
#include <unistd.h>

#include <fstream>
#include <mutex>
#include <set>
#include <thread>

#include "core_test_support.hpp"

using namespace core_test;

namespace {

// What a region's callbacks saw: visits per index, thread numbers, the order of ordered parts.
struct visit_log {
    std::mutex m;
    std::vector<int> count;
    std::vector<int64_t> order;
    std::set<int32_t> threads;
    bool bad_thread = false;
    explicit visit_log(int64_t n) : count(n, 0) {}
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

bool once_each(const visit_log& log) {
    return std::all_of(log.count.begin(), log.count.end(), [](int c) { return c == 1; });
}

std::vector<int64_t> rising(int64_t n) {
    std::vector<int64_t> v(n);
    for (int64_t i = 0; i < n; ++i)
        v[i] = i;
    return v;
}

class Layer : public testing::TestWithParam<const char*> {
  protected:
    layer l{GetParam()};
    const qnd_ss_threader_row& row = l.rows[0];
    bool sequential() const {
        return std::string(GetParam()).find("sequential") != std::string::npos;
    }
};

TEST_P(Layer, RegionsRunEveryIndexOnceOnValidThreadsInTheirOrder) {
    scoped_env env("QND_NUM_THREADS", "3");
    for (int64_t n : {0, 1, 2, 5, 1000}) {
        visit_log log(n);
        row.for_each(n, 0, &log, record);
        EXPECT_TRUE(once_each(log) && !log.bad_thread) << n;
        EXPECT_EQ(log.threads.size(),
                  static_cast<size_t>(std::min<int64_t>(n, sequential() ? 1 : 3)));
    }
    visit_log one(100), ordered(50), sections(7), team(16);
    row.for_each(100, 1, &one, record);  // max_threads bounds the team
    EXPECT_EQ(one.threads, std::set<int32_t>{0});
    row.for_ordered(50, 0, &ordered, record, record_order);
    EXPECT_EQ(ordered.order, rising(50));
    row.sections(7, 0, &sections, record);
    EXPECT_TRUE(once_each(sections) && !sections.bad_thread);
    // A team of the layer's limit, then its ordered parts by thread number.
    row.ordered(0, &team, record, record_order);
    EXPECT_EQ(team.order, rising(row.get_num_threads_limit()));
    EXPECT_EQ(team.threads.size(), team.order.size());
}

TEST_P(Layer, ThreadLimitFollowsTheEnvironment) {
    for (const char* value : {"5", "1", "4095"}) {
        scoped_env env("QND_NUM_THREADS", value);
        EXPECT_EQ(row.get_num_threads_limit(), sequential() ? 1 : std::atoi(value));
    }
    // Values out of range fall back to the machine's count, at least 1.
    for (const char* value : {"junk", "0", "-3", "4096"}) {
        scoped_env env("QND_NUM_THREADS", value);
        const int32_t fallback = row.get_num_threads_limit();
        EXPECT_TRUE(fallback >= 1 && fallback <= (sequential() ? 1 : 4094)) << value;
    }
}

TEST_P(Layer, GetenvAndLock) {
    auto get = l.symbol<int32_t (*)(const char*, char*, int32_t)>("qnd_serv_getenv");
    auto lock = l.symbol<void (*)(int32_t*)>("qnd_serv_lock");
    auto unlock = l.symbol<void (*)(int32_t*)>("qnd_serv_unlock");
    ASSERT_TRUE(get && lock && unlock);
    scoped_env env("QND_TEST_VALUE", "1abcdef");
    char buffer[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(get("QND_TEST_VALUE", buffer, 4), 7);
    EXPECT_STREQ(buffer, "1ab");
    EXPECT_EQ(get("QND_TEST_VALUE", buffer, 0), 7);
    EXPECT_EQ(get("QND_TEST_VALUE", nullptr, 4), 7);
    EXPECT_STREQ(buffer, "1ab");
    scoped_env unset("QND_TEST_VALUE", nullptr);
    EXPECT_EQ(get("QND_TEST_VALUE", buffer, 4), -1);
    EXPECT_EQ(get(nullptr, buffer, 4), -1);

    int32_t word = 0;
    int64_t counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                lock(&word);
                ++counter;
                unlock(&word);
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(counter, 80000);
    EXPECT_EQ(word, 0);
}

// Messages 771 and 772, the exit code and the component beside the layer:
// tests/cpu/loading_test.cpp.
TEST_P(Layer, PrintsTheNumberedMessages) {
    auto print = l.symbol<void (*)(int32_t, int32_t, int32_t, ...)>("qnd_serv_print");
    ASSERT_NE(print, nullptr);
    testing::internal::CaptureStderr();
    print(0, 3, 1, "'omp_get_interop_int'");
    print(1, 99, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "qnd error: a runtime library this program needs has no entry 'omp_get_interop_int'\n"
              "qnd fatal error: message 99\n");
}

INSTANTIATE_TEST_SUITE_P(Core, Layer, testing::ValuesIn(layer_files));

// A layer copied away from the component finds nothing beside itself, and takes the file
// named by the environment instead.
TEST(LayerElsewhere, ComponentFromTheEnvironment) {
    char dir[] = "/tmp/qnd_layer_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string copy = std::string(dir) + "/libqnd_sequential.so.2";
    {
        std::ifstream in(QND_TEST_LIB_DIR "/libqnd_sequential.so.2", std::ios::binary);
        std::ofstream(copy, std::ios::binary) << in.rdbuf();
    }
    void* h = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(h, nullptr);
    auto load = reinterpret_cast<void* (*)()>(dlsym(h, "qnd_serv_load_ktn"));
    for (const char* chosen : {static_cast<const char*>(nullptr), "", "/no/such/file.so"}) {
        scoped_env env(QND_CORE_LIBRARY_ENV, chosen);
        EXPECT_EQ(load(), nullptr) << (chosen ? chosen : "unset");
    }
    scoped_env env(QND_CORE_LIBRARY_ENV, QND_TEST_LIB_DIR "/libqnd_core.so.2");
    void* handle = load();
    EXPECT_NE(dlsym(handle, "_rtkdSSBasic"), nullptr);
    unlink(copy.c_str());
    rmdir(dir);
}

}  // namespace
