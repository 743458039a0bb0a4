// The statistics task record as the core library lays it out, with the byte position of every
// field this library reads fixed at compile time, and the edit parameters that name its fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tavrel::qnd::stats::detail::cpu {

// The core library creates and owns the record; this library only reads it (the dispatcher and
// the offload entry points). One layout serves float and double tasks, so the arrays are untyped.
// Reserved words belong to the core library and must stay where they are.
struct ss_task {
    // 0: the integers behind dims_ptr, observations_count_ptr and storage_ptr are 32-bit;
    // anything else: 64-bit. Only the low half of word 0 is read.
    std::uint32_t int_width;
    std::uint32_t reserved_0;
    std::uint64_t reserved_1;
    const void* dims_ptr;
    const void* observations_count_ptr;
    const void* indices;
    const void* observations;
    const void* weights;
    std::uint64_t reserved_7;
    const void* storage_ptr;  // the layout value, 65536 or 131072
    std::uint64_t reserved_9;
    std::uint64_t reserved_10;
    void* mean;
    void* raw_moment_2;
    void* raw_moment_3;
    void* raw_moment_4;
    void* central_moment_2;
    void* central_moment_3;
    void* central_moment_4;
    void* raw_sum_1;
    void* raw_sum_2;
    void* raw_sum_3;
    void* raw_sum_4;
    void* central_sum_2;
    void* central_sum_3;
    void* central_sum_4;
    void* kurtosis;
    void* skewness;
    void* variation;
    void* min;
    void* max;
    // The core library may keep more behind this point; nothing here reads it.
};

static_assert(std::is_standard_layout_v<ss_task>, "ss_task is a memory format");
static_assert(sizeof(void*) == 8, "the record is laid out in 64-bit words");
static_assert(offsetof(ss_task, int_width) == 0);
static_assert(offsetof(ss_task, dims_ptr) == 16);
static_assert(offsetof(ss_task, observations_count_ptr) == 24);
static_assert(offsetof(ss_task, indices) == 32);
static_assert(offsetof(ss_task, observations) == 40);
static_assert(offsetof(ss_task, weights) == 48);
static_assert(offsetof(ss_task, storage_ptr) == 64);
static_assert(offsetof(ss_task, mean) == 88);
static_assert(offsetof(ss_task, raw_moment_2) == 96);
static_assert(offsetof(ss_task, raw_moment_4) == 112);
static_assert(offsetof(ss_task, central_moment_2) == 120);
static_assert(offsetof(ss_task, central_moment_4) == 136);
static_assert(offsetof(ss_task, raw_sum_1) == 144);
static_assert(offsetof(ss_task, raw_sum_4) == 168);
static_assert(offsetof(ss_task, central_sum_2) == 176);
static_assert(offsetof(ss_task, central_sum_4) == 192);
static_assert(offsetof(ss_task, kurtosis) == 200);
static_assert(offsetof(ss_task, skewness) == 208);
static_assert(offsetof(ss_task, variation) == 216);
static_assert(offsetof(ss_task, min) == 224);
static_assert(offsetof(ss_task, max) == 232);

// Parameter numbers of the EditTask entries, by the field they set.
enum ss_edit_parameter : std::int32_t {
    ss_edit_mean = 7,
    ss_edit_kurtosis = 14,
    ss_edit_skewness = 15,
    ss_edit_min = 16,
    ss_edit_max = 17,
    ss_edit_variation = 18,
};

// The layout values a task may hold behind storage_ptr.
constexpr std::int64_t ss_storage_rows = 0x10000;
constexpr std::int64_t ss_storage_columns = 0x20000;

}  // namespace tavrel::qnd::stats::detail::cpu
