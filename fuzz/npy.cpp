// Files of numpy.save: readNpy, planesOf and what follows them, for a picture of 3 x 2 pixels. The
// first byte: odd, the rest is a header's text and, behind a zero byte, the elements.

#include "files/npy.h"

#include <algorithm>
#include <cmath>

#include "files/axes.h"
#include "files/file_error.h"
#include "files/probabilities.h"
#include "target.h"

using namespace namespace_ratseg;

namespace {

constexpr std::size_t kMostElements = 1 << 20;

std::string fileOf(std::string_view input) {
  if (input.empty() || input[0] % 2 == 0) return std::string(input.substr(input.empty() ? 0 : 1));
  input.remove_prefix(1);
  const std::size_t end = std::min({input.find('\0'), input.size(), std::size_t{65535}});
  std::string file("\x93NUMPY\x01\x00", 8);
  file += {static_cast<char>(end & 255), static_cast<char>(end >> 8)};
  file += input.substr(0, end);
  return file + std::string(input.substr(std::min(input.size(), end + 1)));
}

// One element by itself, for types of which every machine here has one.
float elementAt(const std::string& file, std::size_t from, const SampleType& type, std::size_t k) {
  const auto each = static_cast<std::size_t>(type.bits / 8);
  float value = 0;
  toFloats(type, reinterpret_cast<const std::uint8_t*>(file.data()) + from + k * each, 1, &value);
  return value;
}

void expectElements(const std::string& file, const Array& array) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(file[k]); };
  const std::size_t length =
      byte(6) == 1 ? byte(8) + 256u * byte(9) : byte(8) + 256u * byte(9) + 65536u * byte(10);
  const std::size_t from = length + (byte(6) == 1 ? 10 : 12);
  const std::string header = file.substr(0, from);
  FUZZ_EXPECT(array.values.empty() ||
                  from + array.values.size() * static_cast<std::size_t>(array.samples.bits) / 8 <=
                      file.size(),
              "no element is made up");
  if (header.find('>') != std::string::npos) return;  // swapped
  for (std::size_t k = 0; k < array.values.size(); k += 1 + array.values.size() / 64) {
    const float wanted = elementAt(file, from, array.samples, k);
    FUZZ_EXPECT(wanted == array.values[k] || (std::isnan(wanted) && std::isnan(array.values[k])),
                "the elements are those of the file");
  }
}

void expectCosts(const Array& array) {
  constexpr std::size_t kW = 3, kH = 2;
  const Planes planes = planesOf(array, "", kW, kH);
  FUZZ_EXPECT(planes.labels >= 2 && planes.labels * kW * kH == array.values.size(),
              "each element is the value of a label at a pixel");
  std::vector<float> values = inPlanes(array, planes, kW, kH);
  scaleToOne(values, array.samples);
  checkProbabilities(values, planes.labels, kW, array.samples);
  probabilitiesToCosts(values, 10);
  for (float value : values) FUZZ_EXPECT(value >= 0 && value <= 10, "costs are from 0 to thr");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file = fileOf({reinterpret_cast<const char*>(data), size});
  try {
    const Array array = readNpy(file, [](std::size_t count) {
      if (count > kMostElements) throw FileError("is large");
    });
    FUZZ_EXPECT(array.values.size() == elementCount(array.shape), "the shape counts the elements");
    expectElements(file, array);
    expectCosts(array);
  } catch (const FileError& error) {
    FUZZ_EXPECT(!fuzz::hasControl(error.what()), "an error is one line without control characters");
  }
  return 0;
}
