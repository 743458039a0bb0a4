/* The test double of the OpenMP offload runtime, libomptarget.so, whose five interop entries the
   GPU service binds by name. A test program links the CMake target omptarget_double, so that the
   library's dlopen finds this very copy, and hands the library objects of the type below as its
   omp_interop_t. Property p, from -1 to 15, answers at index p + 1 through omp_get_interop_int
   (`ints`) and through __tgt_get_interop_property and omp_get_interop_ptr (`pointers`): a value
   and a code, 0 or that of a failed query, which leaves the result untouched. Each query of a
   property counts itself in its answer. */
#ifndef OMPTARGET_DOUBLE_H
#define OMPTARGET_DOUBLE_H

#include <stdint.h>

struct omptarget_double_answer {
    intptr_t value;
    int32_t code;
    int32_t queries;
};

struct omptarget_double_interop {
    struct omptarget_double_answer ints[17], pointers[17];
    int32_t kind; /* what property 8 may point at */
};

#endif
