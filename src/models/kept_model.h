#ifndef RATSEG_MODELS_KEPT_MODEL_H
#define RATSEG_MODELS_KEPT_MODEL_H

// Models in files. docs/models.md has the layout.

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "models/channels.h"
#include "models/learn.h"

namespace namespace_ratseg {

struct KeptModel {
  ChannelKind kind = ChannelKind::other;  // of the picture that it learned from
  std::uint32_t planes = 0;               // and the number of its planes
  std::uint32_t labelCount = 0;           // with those that were not marked
  float sigma = 5;                        // width of the colour kernel
  Learned learned;                        // without what was held out
  // sRGB, 0 to 1, per class of learned; none where the forest is alone.
  std::vector<std::vector<std::array<float, 3>>> colours;
};

// Why bytes are no model; what() continues a sentence after "a file that".
class NoModel : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The bytes of a file.
std::string packModel(const KeptModel& model);

// The model that they hold. Throws NoModel unless everything in it is as packModel writes it: then
// its forest ends on every path, and no number is out of range.
KeptModel unpackModel(std::string_view bytes);

}  // namespace namespace_ratseg

#endif
