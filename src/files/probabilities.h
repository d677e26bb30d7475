#ifndef RATSEG_FILES_PROBABILITIES_H
#define RATSEG_FILES_PROBABILITIES_H

#include <cstddef>
#include <string>
#include <vector>

#include "files/samples.h"

namespace namespace_ratseg {

// What can be wrong with a plane of values for each label (values: labels * pixels). Both throw
// FileError, which names the first place of w pixels in a row.

// Probabilities: none is NaN or below 0 or above 1, and at each pixel their sum is 1 within
// sumTolerance().
void checkProbabilities(const std::vector<float>& values, std::size_t labels, std::size_t w,
                        const SampleType& samples);

// Costs: none is NaN.
void checkCosts(const std::vector<float>& values, std::size_t labels, std::size_t w);

// 1e-3, and for integers what rounding each of the labels may add.
double sumTolerance(std::size_t labels, const SampleType& samples);

// True of costs which all are from 0 to 1 and sum to 1 at each pixel.
bool lookLikeProbabilities(const std::vector<float>& values, std::size_t labels);

// Divides integers by their greatest value, 255 or 65535.
void scaleToOne(std::vector<float>& values, const SampleType& samples);

// Turns probabilities into -log p, at most greatest.
void probabilitiesToCosts(std::vector<float>& values, float greatest);

}  // namespace namespace_ratseg

#endif
