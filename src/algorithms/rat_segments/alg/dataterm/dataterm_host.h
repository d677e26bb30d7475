#ifndef RATSEG_ALG_DATATERM_DATATERM_HOST_H
#define RATSEG_ALG_DATATERM_DATATERM_HOST_H

#include <cstddef>

#include "algorithms/rat_segments/alg/dataterm/dataterm_loops.h"
#include "device/types.h"

namespace namespace_ratseg {

// One label's scribble data term on the host: out[k] for the pixels image[0 .. pixels-1]. Each
// distinct pixel colour is compared once with each distinct scribble colour, so the cost grows with
// the number of colours and not with pixels times scribbles. The formula is
// RatSegKernels::ratseg_setdataterm_scribbles'. The hot loops are those of one instruction set; any
// number of threads gives the same bytes.
void scribbleDatatermHost(float* out, const float4* image, std::size_t pixels,
                          const float4* scribbles, std::size_t scribblesNum, float sigma, float thr,
                          const DatatermLoops& loops = datatermLoops());

}  // namespace namespace_ratseg

#endif
