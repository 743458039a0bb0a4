// The five interop entries of the offload runtime, bound all or nothing on first use.
#include "service/interop_loader.hpp"

#include <dlfcn.h>

#include "cpu/threading_layer.hpp"
#include "service/entry_table.hpp"

namespace tavrel::qnd::gpu::detail {

namespace cpu = stats::detail::cpu;

namespace {

enum interop_entry : int {
    get_interop_property,
    get_interop_int,
    get_interop_ptr,
    get_interop_str,
    add_completion_callback,
    interop_entry_count
};

// In the order of binding.
constexpr const char* entry_names[interop_entry_count] = {
    "__tgt_get_interop_property", "omp_get_interop_int", "omp_get_interop_ptr",
    "omp_get_interop_str", "ompx_interop_add_completion_callback"};

// The text of message 3 for a missing entry.
constexpr const char* quoted_entry_names[interop_entry_count] = {
    "'__tgt_get_interop_property'", "'omp_get_interop_int'", "'omp_get_interop_ptr'",
    "'omp_get_interop_str'", "'ompx_interop_add_completion_callback'"};

entry_table<interop_entry_count> table{entry_names, {}, 0, 0, -1};

template <typename Fn>
Fn* bound(interop_entry entry) {
    return reinterpret_cast<Fn*>(bound_entry(table, entry, load_interop_entries));
}

// A direct call of a missing entry ends the process; the layer's exit does not return.
void report_missing_entry(interop_entry entry) {
    cpu::qnd_serv_print(0, 3, 1, quoted_entry_names[entry]);
    cpu::qnd_serv_exit(2);
}

}  // namespace

int load_interop_entries() {
    return load_entry_table(table, [] { return dlopen("libomptarget.so", RTLD_NOW | RTLD_LOCAL); });
}

std::int32_t __tgt_get_interop_property(void* interop, std::int32_t property, void** result) {
    using fn = std::int32_t(void*, std::int32_t, void**);
    fn* entry = bound<fn>(get_interop_property);
    if (entry == nullptr) {
        report_missing_entry(get_interop_property);
        return 1;
    }
    return entry(interop, property, result);
}

std::intptr_t omp_get_interop_int(void* interop, std::int32_t property, std::int32_t* code) {
    using fn = std::intptr_t(void*, std::int32_t, std::int32_t*);
    fn* entry = bound<fn>(get_interop_int);
    if (entry == nullptr) {
        report_missing_entry(get_interop_int);
        return 0;
    }
    return entry(interop, property, code);
}

void* omp_get_interop_ptr(void* interop, std::int32_t property, std::int32_t* code) {
    using fn = void*(void*, std::int32_t, std::int32_t*);
    fn* entry = bound<fn>(get_interop_ptr);
    if (entry == nullptr) {
        report_missing_entry(get_interop_ptr);
        return nullptr;
    }
    return entry(interop, property, code);
}

const char* omp_get_interop_str(void* interop, std::int32_t property, std::int32_t* code) {
    using fn = const char*(void*, std::int32_t, std::int32_t*);
    fn* entry = bound<fn>(get_interop_str);
    if (entry == nullptr) {
        report_missing_entry(get_interop_str);
        return nullptr;
    }
    return entry(interop, property, code);
}

std::int32_t ompx_interop_add_completion_callback(void* interop,
                                                  void (*callback)(void*),
                                                  void* data) {
    using fn = std::int32_t(void*, void (*)(void*), void*);
    fn* entry = bound<fn>(add_completion_callback);
    if (entry == nullptr) {
        report_missing_entry(add_completion_callback);
        return 0;
    }
    return entry(interop, callback, data);
}

int interop_memory_usable() {
    // Only the first character counts: "10" asks for SVM, "01" does not.
    char value[10] = {};
    const std::int32_t length =
        cpu::qnd_serv_getenv("LIBOMPTARGET_OPENCL_USE_SVM", value, sizeof value);
    return length > 0 && value[0] == '1' ? 0 : 1;
}

}  // namespace tavrel::qnd::gpu::detail
