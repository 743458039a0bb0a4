// Group barriers and group collectives (reduce_over_group, group_broadcast).
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

#include <sycl/detail/runtime.hpp>
#include <sycl/functional.hpp>
#include <sycl/nd_item.hpp>

namespace sycl {

// Every work-item of the group waits here until all have arrived. The host has one coherent
// memory, so every fence scope is honoured by the same barrier.
inline void group_barrier(group<1> g, memory_scope = memory_scope::work_group) {
    detail::group_barrier(g.state());
}

namespace detail {
// Scratch of a collective: the result area first, then one slot per work-item. The result
// area is written only by the leader after the first barrier of a collective, when every
// work-item has read the previous result, so two barriers per reduction suffice.
constexpr std::size_t collective_result_bytes = 64;

// Every work-item stores its value; the leader folds them in local-id order, so the result
// is the same from run to run; everyone reads the result after the second barrier.
template <typename T, typename BinaryOp>
T fold_over_group(group<1> g, const T& x, BinaryOp op) {
    static_assert(std::is_trivially_copyable_v<T>, "group collectives need trivially copyable T");
    static_assert(sizeof(T) <= collective_result_bytes, "group collectives need a small T");
    const std::size_t n = g.get_local_linear_range();
    if (n == 1)
        return x;
    const std::size_t l = g.get_local_linear_id();
    auto* scratch = static_cast<unsigned char*>(
        detail::group_scratch(g.state(), collective_result_bytes + sizeof(T) * n));
    unsigned char* slots = scratch + collective_result_bytes;
    std::memcpy(slots + l * sizeof(T), &x, sizeof(T));
    detail::group_barrier(g.state());
    if (l == 0) {
        T acc;
        std::memcpy(&acc, slots, sizeof(T));
        for (std::size_t i = 1; i < n; ++i) {
            T v;
            std::memcpy(&v, slots + i * sizeof(T), sizeof(T));
            acc = op(acc, v);
        }
        std::memcpy(scratch, &acc, sizeof(T));
    }
    detail::group_barrier(g.state());
    T result;
    std::memcpy(&result, detail::group_scratch(g.state(), collective_result_bytes), sizeof(T));
    return result;
}
}  // namespace detail

template <typename T, typename BinaryOp>
T reduce_over_group(group<1> g, T x, BinaryOp op) {
    return detail::fold_over_group(g, x, op);
}

// The initial value is combined once, after the group's own fold: op(init, fold).
template <typename V, typename T, typename BinaryOp>
T reduce_over_group(group<1> g, V x, T init, BinaryOp op) {
    return op(init, detail::fold_over_group(g, static_cast<T>(x), op));
}

template <typename T>
T group_broadcast(group<1> g, T x, std::size_t local_id = 0) {
    static_assert(std::is_trivially_copyable_v<T>, "group collectives need trivially copyable T");
    if (g.get_local_linear_range() == 1)
        return x;
    // The value goes to the work-item slots, which no collective reads before its own first
    // barrier; the second barrier keeps the next collective from overwriting it early.
    auto* slot = static_cast<unsigned char*>(detail::group_scratch(
                     g.state(), detail::collective_result_bytes + sizeof(T))) +
                 detail::collective_result_bytes;
    if (g.get_local_linear_id() == local_id)
        std::memcpy(slot, &x, sizeof(T));
    detail::group_barrier(g.state());
    T result;
    std::memcpy(&result, slot, sizeof(T));
    detail::group_barrier(g.state());
    return result;
}

}  // namespace sycl

#pragma GCC visibility pop
