// Kept models: unpackModel. The first byte says what the others are: even, the file itself; odd,
// the contents behind a header that vouches for them.

#include "models/kept_model.h"

#include <zlib.h>

#include <cmath>
#include <cstring>

#include "target.h"

using namespace namespace_ratseg;

namespace {

std::string fileOf(std::string_view input) {
  if (input.empty() || input[0] % 2 == 0) {
    return std::string(input.substr(input.empty() ? 0 : 1));
  }
  input.remove_prefix(1);
  const std::uint32_t head[] = {
      1, static_cast<std::uint32_t>(
             crc32_z(0, reinterpret_cast<const Bytef*>(input.data()), input.size()))};
  const std::uint64_t length = input.size();
  std::string file = "ratsegMD";
  file.append(reinterpret_cast<const char*>(head), sizeof head);
  file.append(reinterpret_cast<const char*>(&length), sizeof length);
  return file.append(input);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file = fileOf({reinterpret_cast<const char*>(data), size});
  KeptModel model;
  try {
    model = unpackModel(file);
  } catch (const NoModel& error) {
    FUZZ_EXPECT(!fuzz::hasControl(error.what()), "an error is one line without control characters");
    return 0;
  }
  FUZZ_EXPECT(packModel(model) == file, "what is accepted is what would be written");
  // Whatever it is asked, it answers.
  const Forest& forest = model.learned.forest;
  if (forest.featureCount > 10000) return 0;
  for (const float value : {0.0f, 1e30f, -1e30f, std::nanf("")}) {
    const std::vector<float> features(forest.featureCount, value);
    std::vector<float> out(forest.classCount);
    forest.probabilities(features.data(), 1, 1, out.data());
    model.learned.calibration.costs(out.data(), forest.classCount, out.data());
    for (const float cost : out) FUZZ_EXPECT(cost >= 0 && cost <= 10, "costs are in their range");
  }
  return 0;
}
