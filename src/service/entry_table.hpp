// A table of entries bound by name from a library opened at run time: slots filled once, all or
// nothing, under a lock word of the threading layer.
#pragma once

#include <dlfcn.h>

#include <atomic>
#include <cstdint>

#include "cpu/threading_layer.hpp"

namespace tavrel::qnd::gpu::detail {

// Static data, ready before any code runs: slots null, state 0 (never tried), result -1. The
// lock word guards state, result and the filling of the slots; a slot is read without it, as
// one pointer-sized word written once.
template <int Count>
struct entry_table {
    const char* const* names;  // in the order of binding
    std::atomic<void*> slots[Count];
    std::int32_t lock;
    std::int32_t state;  // 0 never tried, 1 loaded, -1 failed
    std::int32_t result;
};

// Opens the library once through `open` and binds the names in order, stopping at the first
// missing one; the slots bound before it stay filled. Returns 0 if every entry is bound, else
// -1, and the same answer on every later call without trying again. The library handle is not
// kept: the library stays loaded for the life of the process.
template <int Count, typename Open>
int load_entry_table(entry_table<Count>& table, Open open) {
    stats::detail::cpu::qnd_serv_lock(&table.lock);
    if (table.state != 0) {
        table.result = table.state == 1 ? 0 : -1;
    } else {
        if (void* library = open()) {
            int bound = 0;
            for (; bound < Count; ++bound) {
                void* address = dlsym(library, table.names[bound]);
                if (address == nullptr)
                    break;
                table.slots[bound].store(address, std::memory_order_release);
            }
            if (bound == Count)
                table.result = 0;
        }
        table.state = table.result == 0 ? 1 : -1;
    }
    const int result = table.result;
    stats::detail::cpu::qnd_serv_unlock(&table.lock);
    return result;
}

// The entry's address, after one call of `load` if its slot is empty; null if it cannot be had.
template <int Count>
void* bound_entry(entry_table<Count>& table, int entry, int (*load)()) {
    void* address = table.slots[entry].load(std::memory_order_acquire);
    if (address == nullptr) {
        load();
        address = table.slots[entry].load(std::memory_order_acquire);
    }
    return address;
}

}  // namespace tavrel::qnd::gpu::detail
