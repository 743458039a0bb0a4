// The caches' hash map: FNV-1a keys against hand-computed values, the growth of the bucket
// count, stable nodes, and the order in which the two caches are destroyed.
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
// bytes, low byte first.
TEST(fnv1a, pointer_bytes_against_hand_computed_values) {
    struct case_ {
        std::uintptr_t pointer;
        std::uint64_t hash;
    };
    const case_ cases[] = {
        {0x0, 0xa8c7f832281a39c5ull},                 // eight zero bytes
        {0x0102030405060708, 0x0c6d4496e17859d5ull},  // bytes 08 07 ... 01 in memory
        {0x10, 0x987468c2d70edbd5ull},
    };
    for (const case_& c : cases)
        EXPECT_EQ(fnv1a(pointer(c.pointer)), c.hash) << std::hex << c.pointer;
}

TEST(fnv1a, keys_hash_the_handle_or_xor_both_and_a_null_device_still_counts) {
    EXPECT_EQ(key_hash(queue_key{pointer(0x10)}), 0x987468c2d70edbd5ull);
    void* a = pointer(0x0102030405060708);
    void* b = pointer(0x10);
    EXPECT_EQ(key_hash(context_key{a, nullptr}), 0x0c6d4496e17859d5ull ^ 0xa8c7f832281a39c5ull);
    EXPECT_EQ(key_hash(context_key{a, b}), key_hash(context_key{b, a}));
    EXPECT_EQ(key_hash(context_key{a, a}), 0u);
    EXPECT_FALSE((context_key{a, b} == context_key{b, a}));
}

TEST(pointer_hash_map, swapped_pairs_are_two_entries) {
    pointer_hash_map<context_key, int> map;
    void* a = pointer(0x1000);
    void* b = pointer(0x2000);
    map.find_or_insert({a, b}) = 1;
    map.find_or_insert({b, a}) = 2;
    map.find_or_insert({a, a}) = 3;
    map.find_or_insert({b, b}) = 4;  // (a, a) and (b, b) share the hash 0 and a chain
    EXPECT_EQ(map.size, 4u);
    EXPECT_EQ(*map.find({a, b}), 1);
    EXPECT_EQ(*map.find({b, a}), 2);
    EXPECT_EQ(*map.find({a, a}), 3);
    EXPECT_EQ(*map.find({b, b}), 4);
    EXPECT_EQ(map.find({a, nullptr}), nullptr);
}

// 8 buckets to start; a ninth entry makes 64, the 65th 512, the 513th 1024 (what the size needs,
// raised to a power of two), the 1025th 2048.
TEST(pointer_hash_map, bucket_count_grows_eightfold_below_512_then_by_size) {
    pointer_hash_map<queue_key, std::size_t> map;
    EXPECT_EQ(map.bucket_count, 8u);
    std::vector<std::pair<std::size_t, std::size_t>> changes;  // size and buckets after growth
    std::size_t buckets = map.bucket_count;
    for (std::size_t i = 1; i <= 1100; ++i) {
        map.find_or_insert({pointer(i * 64)}) = i;
        if (map.bucket_count != buckets) {
            buckets = map.bucket_count;
            changes.emplace_back(map.size, buckets);
        }
    }
    const std::vector<std::pair<std::size_t, std::size_t>> expected{
        {9, 64}, {65, 512}, {513, 1024}, {1025, 2048}};
    EXPECT_EQ(changes, expected);
}

TEST(pointer_hash_map, values_keep_their_address_across_growth) {
    pointer_hash_map<queue_key, std::size_t> map;
    std::vector<std::size_t*> addresses;
    for (std::size_t i = 1; i <= 600; ++i) {
        std::size_t& value = map.find_or_insert({pointer(i)});
        value = i;
        addresses.push_back(&value);
    }
    for (std::size_t i = 1; i <= 600; ++i) {
        ASSERT_EQ(map.find({pointer(i)}), addresses[i - 1]);
        EXPECT_EQ(*addresses[i - 1], i);
    }
    // A second lookup of a present key inserts nothing.
    EXPECT_EQ(&map.find_or_insert({pointer(1)}), addresses[0]);
    EXPECT_EQ(map.size, 600u);
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

TEST(cache_pair, every_queue_goes_before_any_context) {
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
