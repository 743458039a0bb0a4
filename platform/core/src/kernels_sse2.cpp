// The block kernels compiled for the sse2 instruction set.
#define QND_ISA isa_sse2
#define QND_VECTOR_BYTES 16
#define QND_SET kernels_sse2
#define QND_SET_NAME "sse2"
#include "block_kernels.hpp"
