/* The test double of the OpenMP offload runtime: the five interop entries, answering from the
   interop objects of omptarget_double.h. No property is text, and no callback is ever called. */
#include "omptarget_double.h"

#include <stddef.h>

#define EXPORT __attribute__((visibility("default")))

/* The answer of `property` among the object's ints or pointers, counted; null out of range. */
static struct omptarget_double_answer* asked(void* interop, int pointers, int32_t property) {
    struct omptarget_double_interop* object = interop;
    struct omptarget_double_answer* answer;
    if (object == NULL || property < -1 || property > 15)
        return NULL;
    answer = pointers ? &object->pointers[property + 1] : &object->ints[property + 1];
    ++answer->queries;
    return answer;
}

EXPORT int32_t __tgt_get_interop_property(void* interop, int32_t property, void** result) {
    const struct omptarget_double_answer* answer = asked(interop, 1, property);
    if (answer != NULL && answer->code == 0)
        *result = (void*)answer->value;
    return answer != NULL ? answer->code : -1;
}

EXPORT intptr_t omp_get_interop_int(void* interop, int32_t property, int32_t* code) {
    const struct omptarget_double_answer* answer = asked(interop, 0, property);
    *code = answer != NULL ? answer->code : -1;
    return answer != NULL ? answer->value : 0;
}

EXPORT void* omp_get_interop_ptr(void* interop, int32_t property, int32_t* code) {
    const struct omptarget_double_answer* answer = asked(interop, 1, property);
    *code = answer != NULL && answer->code == 0 ? 0 : -1;
    return *code == 0 ? (void*)answer->value : NULL;
}

EXPORT const char* omp_get_interop_str(void* interop, int32_t property, int32_t* code) {
    (void)interop;
    (void)property;
    *code = -1;
    return NULL;
}

EXPORT int32_t ompx_interop_add_completion_callback(void* interop,
                                                    void (*callback)(void*),
                                                    void* data) {
    (void)data;
    return interop != NULL && callback != NULL ? 0 : -1;
}
