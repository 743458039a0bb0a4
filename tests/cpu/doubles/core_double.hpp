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
    std::uint64_t estimates = 0;      // routines: the mask
    std::int64_t method = 0;          // routines: the method value
    const void* threaders = nullptr;  // routines: the threader table
    ss_task task{};                   // the record after the call's own edits
    // The integers behind the record's pointers at the time of the call (0 where one is null).
    std::int64_t n_dims = 0, n_observations = 0, storage = 0;
};

std::vector<call> calls();  // since the last reset, in order
void reset();               // forgets calls and statuses, frees the tasks never deleted
void set_status(const std::string& entry, std::int32_t status);  // from now on; 0 restores success

// Record words 11 (mean) to 29 (max) hold result arrays; this is the bit of the mask under which
// the routines fill word `word`.
inline std::uint64_t bit_of_word(int word) {
    if (word <= 17)
        return std::uint64_t{1} << (word - 11);
    if (word <= 24)
        return std::uint64_t{0x2000000} << (word - 18);
    return std::uint64_t{0x80} << (word - 25);
}

// The value a routine writes at dimension d of the array in record word `word`.
inline double marker(int word, std::int64_t d) {
    return word * 1000.0 + static_cast<double>(d);
}

inline void* const& word_of(const ss_task& task, int word) {
    return reinterpret_cast<void* const*>(&task)[word];
}

}  // namespace core_double

#pragma GCC visibility pop
