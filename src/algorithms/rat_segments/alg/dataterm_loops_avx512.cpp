#define RATSEG_ISA isa_avx512
#define RATSEG_ISA_NAME "avx512"
#include "algorithms/rat_segments/alg/dataterm_loops_kernels.h"
