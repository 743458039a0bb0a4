// The test double of the OpenMP offload runtime: the five interop entries over interop objects
// whose answers a test shapes through omptarget_double.h.
#include "omptarget_double.h"

#include <atomic>
#include <cstdint>

#define DOUBLE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

constexpr int32_t first_property = -1;
constexpr int32_t property_count = 17;  // -1 to 15
constexpr int32_t property_kind = 8;

struct property_answer {
    bool set = false;
    intptr_t value = 0;
    int32_t failure = -1;  // the code or status of a failed query
};

struct interop_object {
    property_answer ints[property_count];
    property_answer pointers[property_count];
    int32_t kind = 0;
    std::atomic<int32_t> int_queries[property_count] = {};
    std::atomic<int32_t> property_queries[property_count] = {};
    std::atomic<int32_t> callbacks{0};
};

interop_object* object_of(void* interop) {
    return static_cast<interop_object*>(interop);
}

// The slot of `property`, or null for a number outside -1..15, which always fails.
int32_t index_of(int32_t property) {
    const int32_t index = property - first_property;
    return index >= 0 && index < property_count ? index : -1;
}

}  // namespace

DOUBLE_EXPORT void* omptarget_double_new_interop(int32_t runtime) {
    auto* object = new interop_object;
    object->ints[index_of(-1)] = {true, runtime, 0};
    return object;
}

DOUBLE_EXPORT void omptarget_double_delete_interop(void* interop) {
    delete object_of(interop);
}

DOUBLE_EXPORT void omptarget_double_set_int(void* interop, int32_t property, intptr_t value) {
    if (const int32_t i = index_of(property); i >= 0)
        object_of(interop)->ints[i] = {true, value, 0};
}

DOUBLE_EXPORT void omptarget_double_fail_int(void* interop, int32_t property, int32_t code) {
    if (const int32_t i = index_of(property); i >= 0)
        object_of(interop)->ints[i] = {false, 0, code};
}

DOUBLE_EXPORT void omptarget_double_fail_int_with_value(void* interop,
                                                        int32_t property,
                                                        int32_t code,
                                                        intptr_t value) {
    if (const int32_t i = index_of(property); i >= 0)
        object_of(interop)->ints[i] = {false, value, code};
}

DOUBLE_EXPORT void omptarget_double_set_property(void* interop, int32_t property, void* value) {
    if (const int32_t i = index_of(property); i >= 0)
        object_of(interop)->pointers[i] = {true, reinterpret_cast<intptr_t>(value), 0};
}

DOUBLE_EXPORT void omptarget_double_fail_property(void* interop, int32_t property, int32_t status) {
    if (const int32_t i = index_of(property); i >= 0)
        object_of(interop)->pointers[i] = {false, 0, status};
}

DOUBLE_EXPORT void omptarget_double_set_kind(void* interop, int32_t kind) {
    interop_object* object = object_of(interop);
    object->kind = kind;
    omptarget_double_set_property(interop, property_kind, &object->kind);
}

DOUBLE_EXPORT int32_t omptarget_double_int_queries(void* interop, int32_t property) {
    const int32_t i = index_of(property);
    return i >= 0 ? object_of(interop)->int_queries[i].load() : 0;
}

DOUBLE_EXPORT int32_t omptarget_double_property_queries(void* interop, int32_t property) {
    const int32_t i = index_of(property);
    return i >= 0 ? object_of(interop)->property_queries[i].load() : 0;
}

DOUBLE_EXPORT int32_t omptarget_double_callbacks(void* interop) {
    return object_of(interop)->callbacks.load();
}

// The entries, under the names and with the arguments of the offload runtime.

DOUBLE_EXPORT int32_t __tgt_get_interop_property(void* interop, int32_t property, void** result) {
    const int32_t i = index_of(property);
    if (interop == nullptr || i < 0)
        return -1;
    interop_object* object = object_of(interop);
    ++object->property_queries[i];
    const property_answer& answer = object->pointers[i];
    if (!answer.set)
        return answer.failure;
    *result = reinterpret_cast<void*>(answer.value);
    return 0;
}

DOUBLE_EXPORT intptr_t omp_get_interop_int(void* interop, int32_t property, int32_t* code) {
    const int32_t i = index_of(property);
    if (interop == nullptr || i < 0) {
        if (code != nullptr)
            *code = -1;
        return 0;
    }
    interop_object* object = object_of(interop);
    ++object->int_queries[i];
    const property_answer& answer = object->ints[i];
    if (code != nullptr)
        *code = answer.set ? 0 : answer.failure;
    return answer.value;
}

DOUBLE_EXPORT void* omp_get_interop_ptr(void* interop, int32_t property, int32_t* code) {
    const int32_t i = index_of(property);
    const property_answer* answer =
        interop != nullptr && i >= 0 ? &object_of(interop)->pointers[i] : nullptr;
    if (code != nullptr)
        *code = answer != nullptr && answer->set ? 0 : -1;
    return answer != nullptr && answer->set ? reinterpret_cast<void*>(answer->value) : nullptr;
}

DOUBLE_EXPORT const char* omp_get_interop_str(void* interop, int32_t property, int32_t* code) {
    // No property of the double is text.
    (void)interop;
    (void)property;
    if (code != nullptr)
        *code = -1;
    return nullptr;
}

#ifndef OMPTARGET_DOUBLE_WITHOUT_COMPLETION_CALLBACK
DOUBLE_EXPORT int32_t ompx_interop_add_completion_callback(void* interop,
                                                           void (*callback)(void*),
                                                           void* data) {
    (void)data;
    if (interop == nullptr || callback == nullptr)
        return -1;
    ++object_of(interop)->callbacks;
    return 0;
}
#endif
