// The block kernels compiled for the avx2 instruction set.
#define QND_ISA isa_avx2
#define QND_VECTOR_BYTES 32
#define QND_SET kernels_avx2
#define QND_SET_NAME "avx2"
#include "block_kernels.hpp"
