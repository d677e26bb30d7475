// Stands for vigra_calls.cpp in builds without VIGRA.

#include <stdexcept>

#include "models/vigra_calls.h"

namespace namespace_ratseg {

bool haveVigra() { return false; }

std::vector<TreeNode> growTree(const TreeSamples&, const TreeSettings&, std::uint32_t) {
  throw std::logic_error("built without VIGRA");
}

}  // namespace namespace_ratseg
