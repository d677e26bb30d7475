#include "app/dataterm/known_model.h"

#include "app/dataterm/input_error.h"
#include "util/whole_file.h"

namespace namespace_ratseg {

KeptModel loadModel(const std::string& file) {
  constexpr std::size_t kMostBytes = std::size_t{1} << 30;
  const std::string expected = "colour, forest, both or a model that -save-model kept";
  const WholeFile content = readWholeFile(file, kMostBytes);
  if (!content.error.empty()) {
    throw InputError::unopened("-model " + file, expected, content.error);
  }
  if (content.tooLong) {
    throw InputError("-model " + file, expected, "a file that is longer than 1 GiB");
  }
  try {
    return unpackModel(content.bytes);
  } catch (const NoModel& e) {
    throw InputError("-model " + file, expected, "a file that " + std::string(e.what()));
  }
}

std::vector<std::vector<RGB>> coloursOf(const KeptModel& model, std::size_t labels) {
  std::vector<std::vector<RGB>> colours(labels);
  for (std::size_t c = 0; c < model.colours.size(); ++c) {
    for (const auto& colour : model.colours[c]) {
      colours[model.learned.labels[c]].push_back({colour[0], colour[1], colour[2], 1});
    }
  }
  return colours;
}

}  // namespace namespace_ratseg
