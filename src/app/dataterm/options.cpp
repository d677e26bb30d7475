#include "app/dataterm/options.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "app/dataterm/input_error.h"
#include "device/quoted.h"
#include "device/selection.h"
#include "util/cmd.h"

namespace namespace_ratseg {

const char* const kDatatermUsage =
    R"(ratseg-dataterm: data term and proportions for ratseg from scribbles

  ratseg-dataterm -image F -scribbles F -out F [-scribbled-image F]
                  [-model colour|forest|both|F] [-mix X] [-strokes hard|soft]
                  [-save-model F] [-forbid LABEL F ...] [-sigma 5] [-thr 10]
                  [-truth F -proportions F [-spread 0.02]]
                  [-shares foreground|image] [-device auto|cuda|host] [-strict 0|1]
                  [-max-megapixels 150] [-max-memory GIB]

-image <filename>
    Image to segment, of any format that ratseg reads
-scribbles <filename>
    Picture of the image's size: 8-bit grey or indexed PNG or TIFF of label numbers, 0 where nothing
    is marked, k+1 where label k is marked; or PNG or TIFF with a pure colour for each label. The
    background is the last label. Not needed with a kept model
-out <filename>
    Data term file to write
-scribbled-image <filename>
    Image that the scribbles were drawn on, and whose size and colours they have, where that is
    another one: one slice of a stack, one frame of a video
    Default: the image to segment
-sigma <float>
    How far colours count as alike, in CIELAB units
    Default: 5
-thr <float>
    Greatest cost, for colours that are unlike all that were marked
    Default: 10
-model colour|forest|both|<filename>
    What makes costs of the marks: "colour" asks how far a pixel's colour is from those that were
    marked, "forest" is a random forest that sees texture too, "both" adds the costs of the two. A
    file is a model that -save-model kept, for another picture of the series
    Default: both
-mix <float>
    The part of the forest in "both", from 0 to 1
    Default: what is likeliest for strokes that are held out, at most twenty to one
-strokes hard|soft
    "hard": on marked pixels all other labels cost 100 times thr, so that what is marked stays so.
    Not with -scribbled-image
    Default: hard, and soft where -model colour is given: its file is what it always was
-save-model <filename>
    Keep the model
-forbid <label> <filename> ...
    The label costs 100 times thr where the mask, an 8-bit grey or indexed PNG of the image's size,
    is not 0. More pairs may follow. With -convert: say where the labeling has it all the same
-truth <filename>
    8-bit grey or indexed PNG or TIFF of the image's size with label numbers, from which the shares
    of the labels are taken
-proportions <filename>
    Proportions file to write, with -truth
-spread <float>
    Spread of the shares in the proportions file
    Default: 0.02
-shares foreground|image
    What the shares are of. With "image" all labels are foreground, and a void background label that
    costs 100 times thr is appended: needed when there are only two labels
    Default: foreground
-device auto|cuda|host
    Where to compute
    Default: what RATSEG_DEVICE says, otherwise auto
-strict 0|1
    Take warnings as errors: where there are any, end before the computation
    Default: 0
-max-megapixels <float>
    Refuse images of more pixels, in millions, before they are decoded
    Default: 150
-max-memory <float>
    Refuse images that are estimated to need more memory, in GiB
    Default: what is available
)";

namespace {

class Reader {
 public:
  Reader(int argc, const char* const* argv) : cmd_(argc, argv, "", nullptr, 0) {}

  const FileOptions::Values& values() const { return cmd_.values; }

  void refuseUnknown() const {
    static const std::string known[] = {
        "image",  "scribbles", "scribbled-image", "out",       "sigma",
        "thr",    "truth",     "proportions",     "spread",    "shares",
        "device", "strict",    "max-megapixels",  "max-memory"};
    for (const auto& [name, values] : cmd_.values) {
      bool isKnown = FileOptions::isOne(name) || ModelOptions::isOne(name);
      for (const std::string& k : known) isKnown = isKnown || k == name;
      if (!isKnown) {
        throw InputError("-" + name, "one of the options that the usage screen lists",
                         "an unknown one");
      }
    }
  }

  // False, with target untouched, when the option was not given.
  bool text(const std::string& name, const std::string& expected, std::string& target) const {
    const auto found = cmd_.values.find(name);
    if (found == cmd_.values.end()) return false;
    const auto& values = found->second;
    if (values.empty() || values[0].empty()) throw InputError("-" + name, expected, "nothing");
    if (values.size() > 1) {
      throw InputError("-" + name, expected, std::to_string(values.size()) + " values");
    }
    target = values[0];
    return true;
  }

  ModelOptions model() const { return ModelOptions::parse(cmd_); }

  void required(const std::string& name, std::string& target) const {
    if (!text(name, "a file name", target)) {
      throw InputError("-" + name, "a file name", "that the option is missing");
    }
  }

  // Throws if the option was given.
  void refuse(const std::string& name, const std::string& expected) const {
    if (cmd_.hasArg(name)) throw InputError("-" + name, expected, "that it is given");
  }

  // isValid tells which values are allowed.
  template <class T, class IsValid>
  void number(const std::string& name, const std::string& expected, T& target,
              IsValid&& isValid) const {
    std::string word;
    if (!text(name, expected, word)) return;
    T value = 0;
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || stop != end || !isValid(value)) {
      throw InputError("-" + name, expected, inQuotes(word));
    }
    target = value;
  }

 private:
  Cmd cmd_;
};

void refuseLeadingWords(int argc, const char* const* argv) {
  if (argc > 1 && argv[1][0] != '-') {
    throw InputError("command line", "an option", inQuotes(argv[1]));
  }
}

void checkShares(const Reader& reader, DatatermOptions& options) {
  const std::string expected = "foreground or image";
  std::string shares = "foreground";
  reader.text("shares", expected, shares);
  if (shares != "foreground" && shares != "image") {
    throw InputError("-shares", expected, inQuotes(shares));
  }
  options.sharesOfImage = shares == "image";
}

void checkDevice(const Reader& reader, DatatermOptions& options) {
  const std::string expected = "auto, cuda or host";
  DeviceChoice ignored;
  if (reader.text("device", expected, options.device) &&
      !parseDeviceChoice(options.device, ignored)) {
    throw InputError("-device", expected, inQuotes(options.device));
  }
}

void checkStrict(const Reader& reader, DatatermOptions& options) {
  std::string strict = "0";
  reader.text("strict", "0 or 1", strict);
  if (strict != "0" && strict != "1") throw InputError("-strict", "0 or 1", inQuotes(strict));
  options.strict = strict == "1";
}

// -truth, -proportions and -spread go together.
void readTruth(const Reader& reader, DatatermOptions& options) {
  const bool truth = reader.text("truth", "a file name", options.truth);
  const bool proportions = reader.text("proportions", "a file name", options.proportions);
  if (truth && !proportions) {
    throw InputError("-proportions", "a file name, since -truth is given",
                     "that the option is missing");
  }
  if (proportions && !truth) {
    throw InputError("-truth", "a file name, since -proportions is given",
                     "that the option is missing");
  }
  const double absent = -1;
  double spread = absent;
  reader.number("spread", "a number of at least 0", spread,
                [](double v) { return v >= 0 && v <= std::numeric_limits<float>::max(); });
  if (spread != absent && !truth) {
    throw InputError("-truth", "a file name, since -spread is given", "that the option is missing");
  }
  if (spread != absent) options.spread = spread;
}

}  // namespace

DatatermOptions DatatermOptions::parse(int argc, const char* const* argv) {
  refuseLeadingWords(argc, argv);
  const Reader reader(argc, argv);
  reader.refuseUnknown();
  DatatermOptions options;
  reader.required("image", options.image);
  options.files = FileOptions::parse(reader.values());
  options.model = reader.model();
  const bool known = !options.model.file.empty();
  const bool given = options.files.givesCosts() || !options.files.convert.empty();
  if (known) {
    reader.text("scribbles", "a file name", options.scribbles);
    reader.refuse("sigma", "the model's own, since -model is a file");
    reader.refuse("scribbled-image", "no such option, since -model is a file");
  } else if (!given) {
    reader.required("scribbles", options.scribbles);
  }
  if (!options.files.listColours) reader.required("out", options.out);
  reader.text("scribbled-image", "a file name", options.scribbledImage);
  const auto isPositive = [](float v) { return v > 0 && std::isfinite(v); };
  reader.number("sigma", "a number greater than 0", options.sigma, isPositive);
  reader.number("thr", "a number greater than 0 and below 1e36", options.thr,
                [](float v) { return v > 0 && v < 1e36f; });
  const auto isLimit = [](double v) { return v > 0 && std::isfinite(v); };
  reader.number("max-megapixels", "a number greater than 0", options.limits.megapixels, isLimit);
  reader.number("max-memory", "a number greater than 0", options.limits.gib, isLimit);
  readTruth(reader, options);
  checkShares(reader, options);
  checkDevice(reader, options);
  checkStrict(reader, options);
  return options;
}

}  // namespace namespace_ratseg
