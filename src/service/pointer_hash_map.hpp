// The chained hash map of the caches: keys of native pointers hashed by 64-bit FNV-1a, stable
// nodes, power-of-two bucket counts and their growth rule.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace tavrel::qnd::gpu::detail {

inline constexpr std::uint64_t fnv1a_basis = 0xcbf29ce484222325ull;
inline constexpr std::uint64_t fnv1a_prime = 0x100000001b3ull;

// FNV-1a over the bytes of `pointer` as they lie in memory (low byte first here).
inline std::uint64_t fnv1a(const void* pointer) {
    unsigned char bytes[sizeof pointer];
    std::memcpy(bytes, &pointer, sizeof pointer);
    std::uint64_t hash = fnv1a_basis;
    for (unsigned char byte : bytes) {
        hash ^= byte;
        hash *= fnv1a_prime;
    }
    return hash;
}

// Key of the queue cache: the native queue.
struct queue_key {
    void* queue;
    friend bool operator==(const queue_key& a, const queue_key& b) { return a.queue == b.queue; }
};
inline std::uint64_t key_hash(const queue_key& key) {
    return fnv1a(key.queue);
}

// Key of the context cache: native context and native device (null for OpenCL). A null device
// still contributes the hash of its eight zero bytes; (a, b) and (b, a) hash alike and stay two
// keys by the comparison.
struct context_key {
    void* context;
    void* device;
    friend bool operator==(const context_key& a, const context_key& b) {
        return a.context == b.context && a.device == b.device;
    }
};
inline std::uint64_t key_hash(const context_key& key) {
    return fnv1a(key.context) ^ fnv1a(key.device);
}

// A chained map whose nodes never move: the address of a value stays good while other entries
// are inserted, until the map is destroyed. Entries are never removed. Not synchronised: the
// caches guard it with their rw_spin_word.
template <typename Key, typename Value>
struct pointer_hash_map {
    struct node {
        node* next;
        std::uint64_t hash;
        Key key;
        Value value;
    };

    static constexpr std::size_t initial_buckets = 8;
    static constexpr double max_load_factor = 1.0;

    pointer_hash_map() : buckets(new node*[initial_buckets]()), bucket_count(initial_buckets) {}
    pointer_hash_map(const pointer_hash_map&) = delete;
    pointer_hash_map& operator=(const pointer_hash_map&) = delete;

    // Frees the bucket array, then each node with the value it holds.
    ~pointer_hash_map() {
        std::unique_ptr<node*[]> chains = std::move(buckets);
        for (std::size_t b = 0; b < bucket_count; ++b) {
            for (node* n = chains[b]; n != nullptr;) {
                node* next = n->next;
                delete n;
                n = next;
            }
        }
    }

    // The value stored under `key`, or null.
    Value* find(const Key& key) const {
        const std::uint64_t hash = key_hash(key);
        for (node* n = buckets[hash & (bucket_count - 1)]; n != nullptr; n = n->next) {
            if (n->hash == hash && n->key == key)
                return &n->value;
        }
        return nullptr;
    }

    // The value stored under `key`, default-constructed and inserted if there is none.
    Value& find_or_insert(const Key& key) {
        if (Value* found = find(key))
            return *found;
        if (static_cast<double>(size + 1) / static_cast<double>(bucket_count) > max_load_factor)
            rehash(grown_bucket_count(size + 1));
        const std::uint64_t hash = key_hash(key);
        node*& head = buckets[hash & (bucket_count - 1)];
        head = new node{head, hash, key, Value()};
        ++size;
        return head->value;
    }

    // Eight times the buckets while below 512, else what `needed` entries take; in both cases
    // at least 8, raised to a power of two.
    std::size_t grown_bucket_count(std::size_t needed) const {
        std::size_t wanted = bucket_count < 512 ? bucket_count * 8 : needed;
        if (wanted < initial_buckets)
            wanted = initial_buckets;
        std::size_t count = 1;
        while (count < wanted)
            count *= 2;
        return count;
    }

    std::unique_ptr<node*[]> buckets;
    std::size_t bucket_count;
    std::size_t size = 0;

  private:
    void rehash(std::size_t count) {
        std::unique_ptr<node*[]> fresh(new node*[count]());
        for (std::size_t b = 0; b < bucket_count; ++b) {
            for (node* n = buckets[b]; n != nullptr;) {
                node* next = n->next;
                node*& head = fresh[n->hash & (count - 1)];
                n->next = head;
                head = n;
                n = next;
            }
        }
        buckets = std::move(fresh);
        bucket_count = count;
    }
};

}  // namespace tavrel::qnd::gpu::detail
