// The caches' hash map: FNV-1a keys against hand-computed values, keys that hash alike, the
// growth of the bucket count, stable nodes, and the order in which the two caches are destroyed.
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "service/cache.hpp"
#include "service/pointer_hash_map.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;

void* pointer(std::uintptr_t value) {
    return reinterpret_cast<void*>(value);
}

// Hand-computed FNV-1a 64 (basis 0xcbf29ce484222325, prime 0x100000001b3) of the pointers'
// bytes, low byte first; a context key is the xor of its two handles' hashes. (a, b) and (b, a)
// hash alike, as do (a, a) and (b, b) with 0, and all four are entries of their own.
TEST(service_hash_map, keys_hash_like_hand_computed_values_and_stay_apart) {
    constexpr std::uint64_t zero = 0xa8c7f832281a39c5ull;   // eight zero bytes
    constexpr std::uint64_t bytes = 0x0c6d4496e17859d5ull;  // 08 07 ... 01 in memory
    void* const a = pointer(0x0102030405060708);
    void* const b = pointer(0x10);
    EXPECT_EQ(fnv1a(nullptr), zero);
    EXPECT_EQ(key_hash(queue_key{a}), bytes);
    EXPECT_EQ(key_hash(queue_key{b}), 0x987468c2d70edbd5ull);
    EXPECT_EQ(key_hash(context_key{a, nullptr}), bytes ^ zero);
    EXPECT_EQ(key_hash(context_key{a, b}), key_hash(context_key{b, a}));
    EXPECT_EQ(key_hash(context_key{a, a}), 0u);
    EXPECT_FALSE((context_key{a, b} == context_key{a, nullptr}));  // both handles count
    pointer_hash_map<context_key, int> map;
    const context_key keys[] = {{a, b}, {b, a}, {a, a}, {b, b}};
    for (int k = 0; k < 4; ++k)
        map.find_or_insert(keys[k]) = k;
    EXPECT_EQ(map.size, 4u);
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(*map.find(keys[k]), k);
    EXPECT_EQ(map.find({a, nullptr}), nullptr);
}

// 8 buckets to start; a ninth entry makes 64, the 65th 512, the 513th 1024 (what the size needs,
// raised to a power of two), the 1025th 2048. Values keep their address as the map grows, and a
// key already there inserts nothing.
TEST(service_hash_map, buckets_grow_eightfold_below_512_then_by_size_and_values_stay_put) {
    pointer_hash_map<queue_key, std::size_t> map;
    std::vector<std::pair<std::size_t, std::size_t>> growth{{0, map.bucket_count}};
    std::vector<std::size_t*> values;
    for (std::size_t i = 1; i <= 1100; ++i) {
        values.push_back(&map.find_or_insert({pointer(i * 64)}));
        *values.back() = i;
        if (map.bucket_count != growth.back().second)
            growth.emplace_back(map.size, map.bucket_count);
    }
    EXPECT_EQ(growth, (std::vector<std::pair<std::size_t, std::size_t>>{
                          {0, 8}, {9, 64}, {65, 512}, {513, 1024}, {1025, 2048}}));
    for (std::size_t i = 1; i <= 1100; ++i) {
        ASSERT_EQ(map.find({pointer(i * 64)}), values[i - 1]);
        EXPECT_EQ(*values[i - 1], i);
    }
    EXPECT_EQ(&map.find_or_insert({pointer(64)}), values[0]);
    EXPECT_EQ(map.size, 1100u);
}

// Values that write their name into a shared log when destroyed.
struct logged {
    std::vector<std::string>* log = nullptr;
    std::string name;
    ~logged() {
        if (log != nullptr)
            log->push_back(name);
    }
};

TEST(service_hash_map, the_cache_pair_destroys_every_queue_before_any_context) {
    std::vector<std::string> log;
    {
        cache_pair<logged, logged> caches;
        for (std::uintptr_t i = 1; i <= 2; ++i) {
            caches.context_cache.find_or_insert({pointer(i), nullptr}) = {&log, "context"};
            caches.queue_cache.find_or_insert({pointer(i)}) = {&log, "queue"};
        }
        log.clear();  // the temporaries of the assignments
    }
    EXPECT_EQ(log, (std::vector<std::string>{"queue", "queue", "context", "context"}));
}

}  // namespace
