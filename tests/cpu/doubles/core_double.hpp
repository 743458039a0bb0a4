// A stand-in for the core library's statistics component that records every call the CPU path
// makes, so that tests can check what reaches the core library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cpu/ss_task.hpp"

#pragma GCC visibility push(default)

namespace core_double {

using tavrel::qnd::stats::detail::cpu::ss_task;

// One entry call as the stand-in saw it.
struct call {
    std::string entry;                // the name the call came in by
    std::int64_t parameter = 0;       // EditTask: the parameter number
    const void* array = nullptr;      // EditTask: the array
    std::uint64_t estimates = 0;      // routines: the mask
    std::int64_t method = 0;          // routines: the method value
    const void* threaders = nullptr;  // routines: the threader table
    ss_task task{};                   // the record after the call's own edits
    // NewTask and routines: the integers behind the record's pointers at the time of the call
    // (0 where a pointer is null).
    std::int64_t n_dims = 0;
    std::int64_t n_observations = 0;
    std::int64_t storage = 0;
};

// Everything since the last reset, in order.
std::vector<call> calls();
// Forgets the calls and statuses and frees the tasks that were never deleted.
void reset();

// From now on, `entry` returns `status` (0 restores success).
void set_status(const std::string& entry, std::int32_t status);

// The value a routine writes at dimension d of the array in record word `word`.
inline double marker(int word, std::int64_t d) {
    return word * 1000.0 + static_cast<double>(d);
}

}  // namespace core_double

#pragma GCC visibility pop
