#ifndef RATSEG_APP_DATATERM_SCRIBBLE_PROBLEM_H
#define RATSEG_APP_DATATERM_SCRIBBLE_PROBLEM_H

#include <cstddef>
#include <optional>
#include <vector>

#include "app/dataterm/label_picture.h"
#include "util/rgb.h"

namespace namespace_ratseg {

// The colours marked with each of the labels: entry k holds the image's colours where the scribble
// picture has k+1. The picture has the image's size and no mark above labels.
std::vector<std::vector<RGB>> scribbleColours(const LabelPicture& scribbles, const RGB* image,
                                              std::size_t labels);

// The number of labels that a scribble picture and, where there is one, a label picture speak of.
std::size_t countLabels(const LabelPicture& scribbles, const std::optional<LabelPicture>& truth);

// The shares of the labels of a label picture. ofImage: one share of the image for each of the
// labels. Otherwise: one share of the foreground for each label but the last, the background; empty
// when there is no foreground pixel.
std::vector<double> shares(const LabelPicture& truth, std::size_t labels, bool ofImage);

}  // namespace namespace_ratseg

#endif
