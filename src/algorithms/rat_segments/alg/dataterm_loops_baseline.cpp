#define RATSEG_ISA isa_baseline
#define RATSEG_ISA_NAME "baseline"
#include "algorithms/rat_segments/alg/dataterm_loops_kernels.h"
