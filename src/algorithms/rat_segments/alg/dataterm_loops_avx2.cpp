#define RATSEG_ISA isa_avx2
#define RATSEG_ISA_NAME "avx2"
#include "algorithms/rat_segments/alg/dataterm_loops_kernels.h"
