#ifndef RATSEG_ALG_RAT_SEG_ARGUMENTS_H
#define RATSEG_ALG_RAT_SEG_ARGUMENTS_H

// Checks of the arguments and parameters of RatSeg. Each function returns true if they can be used;
// otherwise it prints one line on standard error that says which cannot, and why.

#include <cstddef>

#include "algorithms/rat_segments/alg/rat_seg.h"

namespace namespace_ratseg {

// Device numbers, sizes and the shape of blocks; alloc() checks its other parameters itself.
bool canAlloc(const Params& par);

// False for numbers that no iteration can compute with.
bool canRun(const Params& par);

// False for a null array; name and method are for the message.
bool isGiven(const void* array, const char* method, const char* name);

bool isBackgroundLabel(std::size_t label, const Params& par);

bool areScribbles(const float4* image, const float4* const* scribbles,
                  const std::size_t* scribblesNum, float sigma, float thr, const Params& par);

}  // namespace namespace_ratseg

#endif
