#include "app/dataterm/file_options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "app/dataterm/input_error.h"
#include "device/quoted.h"
#include "files/axes.h"

namespace namespace_ratseg {

const char* const kFileOptionsUsage =
    R"(
Files of other programs

-page <int>
    Page of the image, counted from 1, where its file has several (TIFF; smaller copies of a page
    do not count). A label picture of several pages is read at the same page
-scribbled-page <int>
    The same of -scribbled-image and the scribbles
    Default: what -page says
-range <low> <high>
    Values of the image, in its file's own units, that become black and white. A pair for each
    channel may be given
    Default: 8-bit pictures are not changed; of others 0.1 % of the values become black, 0.1 % white
-picture-out <filename>
    PNG to write with the 8-bit picture that the data term was made from: the -image for ratseg
-turn 0|1
    Take the image turned as it asks to be shown (EXIF). Scribbles and truth are then those of the
    turned picture. ratseg does not turn: give it the picture of -picture-out
    Default: 0
-colours ["ff0000=0,00ff00=1"]
    Which label each colour of the scribbles marks. Without a value: print the colours of the
    scribbles, and end
    Default: labels by hue from red over green to blue, then grey ones from black to white
-probabilities <filename>, instead of -scribbles
    What a classifier says of each label and pixel: .npy, TIFF (channels or pages) or HDF5 of
    ilastik. Costs are the negative logarithms, at most thr
-costs <filename>, instead of -scribbles
    Costs of each label and pixel, likewise, used as they are
-axes <letters>
    Order of the axes of these: n label (or c), y, x, and z and t for axes of length 1
    Default: what the file or the sizes tell
-convert <filename>
    Labeling of ratseg (out_result_labeling.gz) to write as -out *.png, *.tif or *.npy. Needs -image
    as well, of which a TIFF takes resolution and place on earth
)";

namespace {

using Values = FileOptions::Values;

const std::array<std::string, 10> kNames = {"page", "scribbled-page", "range", "picture-out",
                                            "turn", "colours",        "costs", "probabilities",
                                            "axes", "convert"};

// The values of an option that was given, of which there must be at least one; else null.
const std::vector<std::string>* valuesOf(const Values& values, const std::string& name,
                                         const std::string& expected) {
  const auto found = values.find(name);
  if (found == values.end()) return nullptr;
  if (found->second.empty() || found->second[0].empty()) {
    throw InputError("-" + name, expected, "nothing");
  }
  return &found->second;
}

std::string text(const Values& values, const std::string& name, const std::string& expected) {
  const auto* const words = valuesOf(values, name, expected);
  if (words == nullptr) return "";
  if (words->size() > 1) {
    throw InputError("-" + name, expected, std::to_string(words->size()) + " values");
  }
  return (*words)[0];
}

std::string fileName(const Values& values, const std::string& name) {
  return text(values, name, "a file name");
}

template <class T>
bool readNumber(const std::string& word, T& number) {
  const char* const end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, number);
  return error == std::errc() && stop == end;
}

std::size_t pageNumber(const Values& values, const std::string& name) {
  const std::string expected = "a page number from 1";
  const std::string word = text(values, name, expected);
  std::size_t page = 0;
  if (word.empty()) return 0;
  if (!readNumber(word, page) || page == 0) {
    throw InputError("-" + name, expected, inQuotes(word));
  }
  return page;
}

std::vector<float> readRange(const Values& values) {
  const std::string expected = "two numbers, or two for each channel, the greater one second";
  const auto* const words = valuesOf(values, "range", expected);
  std::vector<float> numbers;
  if (words == nullptr) return numbers;
  for (const std::string& word : *words) {
    float number = 0;
    if (!readNumber(word, number) || !std::isfinite(number)) {
      throw InputError("-range", expected, inQuotes(word));
    }
    numbers.push_back(number);
  }
  if (numbers.size() % 2 != 0) {
    throw InputError(
        "-range", expected,
        std::to_string(numbers.size()) + (numbers.size() == 1 ? " number" : " numbers"));
  }
  for (std::size_t k = 0; k < numbers.size(); k += 2) {
    if (!(numbers[k] < numbers[k + 1])) {
      throw InputError("-range", expected, inQuotes((*words)[k] + " " + (*words)[k + 1]));
    }
  }
  return numbers;
}

std::string readAxes(const Values& values) {
  const std::string expected =
      "letters like nyx or yxn: n (or c) label, y, x, and z and t for axes of length 1, each once";
  const std::string word = text(values, "axes", expected);
  if (!word.empty() && !areAxes(word)) throw InputError("-axes", expected, inQuotes(word));
  return word;
}

bool readTurn(const Values& values) {
  const std::string word = text(values, "turn", "0 or 1");
  if (!word.empty() && word != "0" && word != "1") {
    throw InputError("-turn", "0 or 1", inQuotes(word));
  }
  return word == "1";
}

// Options that say of one another's work.
void refuseTogether(const Values& values, const char* one,
                    std::initializer_list<const char*> rest) {
  if (!values.contains(one)) return;
  for (const char* other : rest) {
    if (!values.contains(other)) continue;
    throw InputError("-" + std::string(other),
                     "that it is left out where -" + std::string(one) + " is given", "both");
  }
}

}  // namespace

bool FileOptions::isOne(const std::string& name) {
  return std::find(kNames.begin(), kNames.end(), name) != kNames.end();
}

FileOptions FileOptions::parse(const Values& values) {
  FileOptions options;
  options.page = pageNumber(values, "page");
  options.scribbledPage = pageNumber(values, "scribbled-page");
  options.range = readRange(values);
  options.pictureOut = fileName(values, "picture-out");
  options.costs = fileName(values, "costs");
  options.probabilities = fileName(values, "probabilities");
  options.axes = readAxes(values);
  options.turn = readTurn(values);
  options.convert = fileName(values, "convert");
  const auto colours = values.find("colours");
  options.listColours = colours != values.end() && colours->second.empty();
  if (!options.listColours) options.colours = text(values, "colours", "rrggbb=label,...");
  const auto forScribbles = {"scribbles", "scribbled-image", "scribbled-page", "colours"};
  refuseTogether(values, "costs", {"probabilities"});
  refuseTogether(values, "costs", forScribbles);
  refuseTogether(values, "probabilities", forScribbles);
  refuseTogether(values, "convert", {"costs", "probabilities", "truth", "proportions"});
  refuseTogether(values, "convert", forScribbles);
  const auto forModels = {"model", "mix", "strokes", "save-model"};
  for (const char* without : {"costs", "probabilities", "convert"}) {
    refuseTogether(values, without, forModels);
  }
  if (!options.axes.empty() && !options.givesCosts()) {
    throw InputError("-axes", "that -costs or -probabilities is given", "neither");
  }
  return options;
}

}  // namespace namespace_ratseg
