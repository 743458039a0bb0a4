// The reader-writer spin lock of a cache: one 32-bit word, bit 0 for a writer, two per reader.
#pragma once

#include <atomic>
#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace tavrel::qnd::gpu::detail {

// Zero-initialised static data, ready before any constructor runs.
using rw_spin_word = std::atomic<std::uint32_t>;

// Lets the other hardware thread of the core run while this one waits.
inline void spin_wait_hint() {
#if defined(__x86_64__) || defined(__i386__)
    _mm_pause();
#endif
}

// A reader announces itself first and then waits for the writer to leave, so that a writer
// already inside goes on and a writer not yet inside waits for the readers (no writer priority).
inline void read_lock(rw_spin_word& word) {
    word.fetch_add(2, std::memory_order_seq_cst);
    while ((word.load(std::memory_order_seq_cst) & 1u) != 0)
        spin_wait_hint();
}

inline void read_unlock(rw_spin_word& word) {
    word.fetch_sub(2, std::memory_order_seq_cst);
}

// A writer gets in only when the whole word is 0: no reader and no writer.
inline void write_lock(rw_spin_word& word) {
    for (;;) {
        std::uint32_t expected = 0;
        if (word.compare_exchange_strong(expected, 1, std::memory_order_seq_cst))
            return;
        spin_wait_hint();
    }
}

inline void write_unlock(rw_spin_word& word) {
    word.fetch_sub(1, std::memory_order_seq_cst);
}

}  // namespace tavrel::qnd::gpu::detail
