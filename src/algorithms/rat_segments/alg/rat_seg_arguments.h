#ifndef RATSEG_ALG_RAT_SEG_ARGUMENTS_H
#define RATSEG_ALG_RAT_SEG_ARGUMENTS_H

// What RatSeg refuses of its arguments and parameters. Each function returns whether they can be
// used, and otherwise says on standard error in one line which cannot, and why.

#include <cstddef>

#include "algorithms/rat_segments/alg/rat_seg.h"

namespace namespace_ratseg {

// Device numbers, sizes and the shape of blocks; the other parameters of alloc() it looks at
// itself.
bool canAlloc(const Params& par);

// Numbers that no iteration can compute with.
bool canRun(const Params& par);

// An array of that name, for that method.
bool isGiven(const void* array, const char* method, const char* name);

bool isBackgroundLabel(std::size_t label, const Params& par);

bool areScribbles(const float4* image, const float4* const* scribbles,
                  const std::size_t* scribblesNum, float sigma, float thr, const Params& par);

}  // namespace namespace_ratseg

#endif
