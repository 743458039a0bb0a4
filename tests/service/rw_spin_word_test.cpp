// The caches' reader-writer spin word: readers count two and a writer one, a reader waits with
// its count while a writer holds the word, and the word excludes under contention.
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "service/rw_spin_word.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;

TEST(service_rw_spin_word, a_reader_waits_with_its_count_while_a_writer_holds) {
    rw_spin_word word{0};
    read_lock(word);
    read_lock(word);
    EXPECT_EQ(word.load(), 4u);
    read_unlock(word);
    read_unlock(word);
    write_lock(word);
    std::atomic<bool> inside{false};
    std::thread reader([&] {
        read_lock(word);
        inside = true;
        read_unlock(word);
    });
    while (word.load() != 3u)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(inside.load());
    write_unlock(word);
    reader.join();
    EXPECT_TRUE(inside.load());
    EXPECT_EQ(word.load(), 0u);
}

// Two writers keep two plain counters equal, two readers never see them apart, and no
// increment is lost.
TEST(service_rw_spin_word, excludes_under_contention) {
    rw_spin_word word{0};
    long counts[2] = {0, 0};
    std::atomic<int> torn_reads{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, writer = t < 2] {
            for (int i = 0; i < 20000; ++i) {
                writer ? write_lock(word) : read_lock(word);
                if (writer)
                    ++counts[0], ++counts[1];
                else
                    torn_reads += counts[0] != counts[1];
                writer ? write_unlock(word) : read_unlock(word);
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(torn_reads.load(), 0);
    EXPECT_EQ(counts[0], 40000);
    EXPECT_EQ(counts[1], 40000);
    EXPECT_EQ(word.load(), 0u);
}

}  // namespace
