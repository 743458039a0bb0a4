/* The test double of the OpenMP offload runtime, libomptarget.so, linked by test programs so that
   the library's dlopen finds this very copy. Its objects stand for omp_interop_t: property p, from
   -1 to 15, answers at index p + 1 through omp_get_interop_int (`ints`) or the two pointer entries
   (`pointers`) with a value and a code (0, or that of a failed query, which leaves the result
   untouched), and counts its queries. */
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
