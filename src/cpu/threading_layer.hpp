// Run-time binding of the core family's threading layer: the services this library calls and the
// threader table it hands to the statistics routines.
#pragma once

#include <atomic>
#include <cstdint>

namespace tavrel::qnd::stats::detail::cpu {

// An entry of the threading layer as it is stored; the routines cast it back to its own type.
using threader_entry = void (*)();

// One row of the threader table, in the layer's order.
struct ss_threader_row {
    threader_entry parallel_for;
    threader_entry for_ordered;
    threader_entry sections;
    threader_entry ordered;
    threader_entry get_num_threads_limit;
};

// The table every statistics routine gets as its fourth argument: six identical rows. Which row a
// routine reads is the core library's choice.
struct ss_threader_table {
    ss_threader_row rows[6];
};

// The directory of this library's own file, with its trailing '/', found once per process;
// null if it cannot be found or does not fit in PATH_MAX bytes.
const char* library_directory();

// The threading layer that serves this library: one already in the process (omp, then
// sequential, then pool, each by its path in library_directory()), else the pool layer loaded
// from there. Found on first use and kept. If no layer can be had, the process ends as it does
// when the dynamic loader misses a library: a line on stderr and status 127.
void* threading_layer();

// The address of `name` in the threading layer; a missing name ends the process like a failed
// symbol lookup of the dynamic loader.
void* threading_layer_entry(const char* name);

// The threader table, filled from the threading layer on first use and constant afterwards.
const ss_threader_table* threader_table();

// Slot-cached callers of the layer's services.
void* qnd_serv_load_ktn();
void qnd_serv_print(int kind, int message, int count);
void qnd_serv_print(int kind, int message, int count, const char* argument);
void qnd_serv_lock(std::int32_t* word);
void qnd_serv_unlock(std::int32_t* word);
// The length of the variable's value (its first size - 1 bytes copied into buffer, terminated),
// 0 or less if it is not set.
std::int32_t qnd_serv_getenv(const char* name, char* buffer, std::int32_t size);
// Ends the process with `code` in the threading layer's way.
void qnd_serv_exit(std::int32_t code);

// The address in `slot`, bound through `bind(name)` on first use. Two threads may bind together;
// both store the same value.
template <typename Fn, typename Bind>
inline Fn* slot_entry(std::atomic<void*>& slot, const char* name, Bind bind) {
    void* address = slot.load(std::memory_order_acquire);
    if (address == nullptr) {
        address = bind(name);
        slot.store(address, std::memory_order_release);
    }
    return reinterpret_cast<Fn*>(address);
}

}  // namespace tavrel::qnd::stats::detail::cpu
