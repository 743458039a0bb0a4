// The block kernels compiled for the avx512 instruction set.
#define QND_ISA isa_avx512
#define QND_VECTOR_BYTES 64
#define QND_SET kernels_avx512
#define QND_SET_NAME "avx512"
#include "block_kernels.hpp"
