#ifndef RATSEG_APP_DATATERM_FORBIDDEN_H
#define RATSEG_APP_DATATERM_FORBIDDEN_H

#include <cstddef>
#include <vector>

#include "app/dataterm/options.h"
#include "app/load_picture.h"

namespace namespace_ratseg {

// Lets labels cost tooDear where the masks of -forbid mark them, and says at how many pixels. rho
// has a plane per label. Throws InputError for labels that there are not and masks of another size.
void forbidLabels(const DatatermOptions& options, const Image& image, std::size_t labels,
                  float tooDear, std::vector<float>& rho);

// Says for each mask at how many of its pixels a labeling has the label all the same.
void tellForbidden(const DatatermOptions& options, const Image& image,
                   const std::vector<int>& labeling);

}  // namespace namespace_ratseg

#endif
