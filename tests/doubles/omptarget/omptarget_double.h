/* Control of the test double of the OpenMP offload runtime, a shared library named
   libomptarget.so that exports the five interop entries the GPU service binds by name.

   Use: link the test program against the CMake target omptarget_double (or
   omptarget_double_partial, the same library without ompx_interop_add_completion_callback, built
   in another directory). The program then has the double loaded under its soname at start-up, so
   that the library's dlopen("libomptarget.so") finds this very copy and the program can shape
   what its entries answer. A program that does not link it and wants the double found through
   the library search path sets LD_LIBRARY_PATH to the directory of the target's file.

   An interop object is made by omptarget_double_new_interop with its foreign-runtime number
   (any value: 1, 3, 4, 6, ...), which omp_get_interop_int answers for property -1 with code 0.
   Every other property is unset, and a query of an unset property fails (omp_get_interop_int:
   value 0, code -1; __tgt_get_interop_property: status -1, result untouched) until a setter
   gives it a value. Setters are called before the object is shared with other threads; queries
   may then come from any number of threads. Property numbers run from -1 to 15. */
#ifndef OMPTARGET_DOUBLE_H
#define OMPTARGET_DOUBLE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A new interop object of the foreign runtime `runtime`; the handle is what the OpenMP runtime
   would give a program (omp_interop_t). */
void* omptarget_double_new_interop(int32_t runtime);
void omptarget_double_delete_interop(void* interop);

/* omp_get_interop_int(interop, property, &code) answers `value` with code 0. */
void omptarget_double_set_int(void* interop, int32_t property, intptr_t value);
/* omp_get_interop_int(interop, property, &code) answers 0 with the non-zero `code`. */
void omptarget_double_fail_int(void* interop, int32_t property, int32_t code);
/* The same failure, answering `value` beside the non-zero `code`, as a runtime may. */
void omptarget_double_fail_int_with_value(void* interop,
                                          int32_t property,
                                          int32_t code,
                                          intptr_t value);

/* __tgt_get_interop_property(interop, property, &result) stores `value` and answers 0;
   omp_get_interop_ptr answers it too. */
void omptarget_double_set_property(void* interop, int32_t property, void* value);
/* __tgt_get_interop_property(interop, property, &result) answers the non-zero `status` and
   leaves the result untouched. */
void omptarget_double_fail_property(void* interop, int32_t property, int32_t status);
/* Property 8 answers the address of a 32-bit kind held by the object, set to `kind`. */
void omptarget_double_set_kind(void* interop, int32_t kind);

/* How many times `property` of `interop` was asked for through omp_get_interop_int and through
   __tgt_get_interop_property, since the object was made. */
int32_t omptarget_double_int_queries(void* interop, int32_t property);
int32_t omptarget_double_property_queries(void* interop, int32_t property);

/* The completion callbacks registered on `interop` through ompx_interop_add_completion_callback
   (always 0 in the partial double, which lacks that entry). */
int32_t omptarget_double_callbacks(void* interop);

#ifdef __cplusplus
}
#endif

#endif
