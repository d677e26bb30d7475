#include "app/options.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <locale>
#include <sstream>
#include <type_traits>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "app/messages.h"
#include "device/selection.h"
#include "util/cmd.h"

namespace namespace_ratseg {

namespace {

struct OptionText {
  const char* name;
  const char* kind;
  const char* description;
  const char* fallback;     // the default as the usage screen shows it; null = required
  const char* format = "";  // more lines, of the usage screen and of the error
};

constexpr OptionText kImage = {"image", "<filename>", "    Image to segment", nullptr};
constexpr OptionText kDataterm = {"dataterm", "<filename>", "    Dataterm file (packed with zlib)",
                                  nullptr};
constexpr OptionText kProportions = {
    "proportions", "<filename>", "    Mean/sigma for the proportions, see (9) in the paper",
    nullptr,
    "    File format must be as follows:\n"
    "        mean_for_ratios_of_foreground_label_0   sigma_for_ratios_of_foreground_label_0\n"
    "        mean_for_ratios_of_foreground_label_1   sigma_for_ratios_of_foreground_label_1\n"
    "        etc. for all foreground labels\n"};
constexpr OptionText kLambda = {"lambda", "<float>",
                                "    Lambda: Weight for length regularization term, typical range "
                                "is 5-15, see (5) in the paper",
                                nullptr};
constexpr OptionText kMu = {
    "mu", "<float>",
    "    Mu: Weight for proportion prior term, typical range is 200-1000, see (12) in the paper",
    nullptr};
constexpr OptionText kEpsilon = {
    "epsilon", "<float>",
    "    Epsilon: A parameter for the proportion prior term, see (12) in the paper", "10"};
// The usage screen announces 10000 where 5000 is used; both are meant.
constexpr OptionText kIterations = {"iterations", "<int>", "    Number of iterations", "10000"};
constexpr std::size_t kDefaultIterations = 5000;
constexpr OptionText kWeightcoeff = {
    "weightcoeff", "<float>",
    "    Gamma: The parameter in the weighting w(x) = exp(-gamma*|grad InputImage(x)|) for local "
    "length regularization, see paper between (14) and (15)",
    "5"};
constexpr OptionText kOutprefix = {"outprefix", "<string>",
                                   "    Output prefix: E.g. the result labeling will be saved as "
                                   "\"${outprefix}_result_labeling.gz\"",
                                   "out"};
constexpr OptionText kGpu = {"gpu", "<int>", "    GPU to use", "0"};

constexpr std::array<const OptionText*, 10> kOptions = {
    &kImage,   &kDataterm,   &kProportions, &kLambda,    &kMu,
    &kEpsilon, &kIterations, &kWeightcoeff, &kOutprefix, &kGpu};

constexpr const char* kDevice = "device";
constexpr OptionText kTiming = {"timing", "0|1",
                                "    Report the seconds of each stage on standard error", "0"};

constexpr OptionText kTolerance = {
    "tolerance", "<float>",
    "    Stop when the labeling is certified to be this close to the optimum, after at most\n"
    "    -iterations; report energies and gap on standard error",
    "0"};

constexpr OptionText kAccelerate = {
    "accelerate", "0|1",
    "    Take an exact step of the proportions: the same optimum in fewer iterations. Give\n"
    "    -tolerance as well, to stop when it is reached",
    "0"};

constexpr OptionText kMaxMegapixels = {
    "max-megapixels", "<float>",
    "    Refuse images of more pixels, in millions, before they are decoded", "150"};
constexpr OptionText kMaxMemory = {
    "max-memory", "<float>",
    "    Refuse images and runs on the host that are estimated to need more memory, in GiB",
    "what is available, of which runs are only warned"};

void warnOfUnknownOptions(const Cmd& cmd) {
  for (const auto& [name, values] : cmd.values) {
    bool known = name == kDevice || name == kTiming.name || name == kTolerance.name ||
                 name == kAccelerate.name || name == kMaxMegapixels.name || name == kMaxMemory.name;
    for (const OptionText* option : kOptions) known = known || name == option->name;
    if (!known) warn("unknown option " + inQuotes(std::string("-") + name) + " is ignored");
  }
}

// Whether text as a whole is a number of type T; size_t takes no minus sign.
template <class T>
bool isNumber(const std::string& text) {
  if (std::is_unsigned_v<T> && text.find('-') != std::string::npos) return false;
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  T number = 0;
  return stream >> number && (stream >> std::ws).eof();
}

// What is taken instead of a value that is missing or wrong.
std::string used(const std::string& text) {
  return text.empty() ? "" : "; " + inQuotes(text) + " is used";
}
template <class T>
std::string used(T number) {
  return (std::ostringstream() << "; " << number << " is used").str();
}

// Warns when the option's values are not one value of type T; taken is what they were read as.
template <class T>
void warnOfValues(Cmd& cmd, const OptionText& option, const T& taken) {
  const std::string name = std::string("-") + option.name;
  const std::size_t count = cmd.numOptions(option.name);
  if (cmd.hasArg(option.name) && count == 0) warn(name + " has no value" + used(taken));
  if (count > 1) warn(name + " has " + std::to_string(count) + " values; only the first is used");
  if constexpr (std::is_arithmetic_v<T>) {
    const std::string text = cmd.getString(option.name);
    if (count == 0 || isNumber<T>(text)) return;
    const char* expected = std::is_floating_point_v<T> ? "a number"
                           : std::is_unsigned_v<T>     ? "a whole number from 0 on"
                                                       : "a whole number";
    warn(name + " must be " + expected + ", but is " + inQuotes(text) + used(taken));
  }
}

// Reads the option into target, which holds the default, and echoes it.
template <class T>
void readOption(Cmd& cmd, const OptionText& option, T& target) {
  cmd.get(option.name, target);
  const bool missing = option.fallback == nullptr && !cmd.hasArg(option.name);
  if (missing) {
    std::cout << "ERROR: Expected -" << option.name << " " << option.kind << "\n";
  } else {
    warnOfValues(cmd, option, target);
    std::cout << "-" << option.name << " " << target << "\n";
  }
  std::cout << option.description << std::endl;
  if (!missing) return;
  std::cout << option.format << std::flush;
  std::cerr << "ratseg: -help lists all options" << std::endl;
  std::exit(1);
}

// An option that is 0 (off, the default) or 1, which is not echoed.
bool readSwitch(Cmd& cmd, const OptionText& option) {
  if (!cmd.hasArg(option.name)) return false;
  const std::string text = cmd.getString(option.name);
  if (cmd.numOptions(option.name) != 1 || (text != "0" && text != "1")) {
    fail(std::string("ERROR: -") + option.name + " must be 0 or 1, but is " + inQuotes(text));
  }
  return text == "1";
}

// The option's value, 0 (off) where it is not given; it is not echoed.
float readTolerance(Cmd& cmd, const OptionText& option) {
  if (!cmd.hasArg(option.name)) return 0.0f;
  const std::string text = cmd.getString(option.name);
  float value = 0.0f;
  cmd.get(option.name, value);
  const bool ok = cmd.numOptions(option.name) == 1 && isNumber<float>(text) && value >= 0.0f;
  if (!ok) {
    fail(std::string("ERROR: -") + option.name + " must be a number from 0 on, but is " +
         inQuotes(text));
  }
  return value;
}

// Changes the limit, where the option is given, to its value; it is not echoed.
void readLimit(Cmd& cmd, const OptionText& option, double& limit) {
  if (!cmd.hasArg(option.name)) return;
  const std::string text = cmd.getString(option.name);
  cmd.get(option.name, limit);
  const bool ok = cmd.numOptions(option.name) == 1 && isNumber<double>(text) && limit > 0;
  if (ok) return;
  fail(std::string("ERROR: -") + option.name + " must be a number above 0, but is " +
       inQuotes(text));
}

// A negative number of iterations is read as one that no machine finishes.
void refuseEndlessRun(const Params& par) {
  constexpr std::size_t kEndless = std::size_t{1} << 62;
  if (par.Nsteps < kEndless) return;
  fail("ERROR: cannot run " + std::to_string(par.Nsteps) + " iterations");
}

// With these the energy has no lower bound that could be computed, and what is computed is none.
void refuseWhatCannotBeCertified(const Params& par) {
  if (!(par.tolerance > 0)) return;
  const auto refuse = [](const char* option, const char* expected, float value) {
    std::ostringstream message;
    message << "ERROR: with -" << kTolerance.name << ", -" << option << " must be " << expected
            << ", but is " << value;
    fail(message.str());
  };
  if (!(par.lambda >= 0)) refuse(kLambda.name, "a number from 0 on", par.lambda);
  if (!(par.eps > 0)) refuse(kEpsilon.name, "positive", par.eps);
}

void warnOfSenselessNumbers(const Params& par) {
  if (par.lambda < 0) warn("-lambda should not be negative");
  if (!(par.eps > 0)) warn("-epsilon should be positive");
}

void warnOfOutputFolder(const std::string& prefix) {
  std::error_code ignored;
  const auto folder = std::filesystem::absolute(prefix + "_", ignored).parent_path();
  if (access((folder / ".").c_str(), W_OK | X_OK) == 0) return;
  const char* reason = std::strerror(errno);
  warn("results cannot be saved in the folder " + inQuotes(folder.string()) + ": " + reason);
}

}  // namespace

void printUsage() {
  std::cout << "Possible params:\n";
  for (const OptionText* option : kOptions) {
    std::cout << "-" << option->name << " " << option->kind << "\n"
              << option->description << "\n"
              << option->format;
    if (option->fallback == nullptr) {
      std::cout << "    --- Required ---\n";
    } else {
      std::cout << "    Default: " << option->fallback << "\n";
    }
  }
  std::cout << std::flush;
  std::cerr << "Also: -" << kDevice << " auto|cuda|host\n"
            << "    Compute on CUDA GPUs, on the host, or on the host when there is no GPU (auto)\n"
            << "    Default: auto\n"
            << "-" << kTiming.name << " " << kTiming.kind << "\n"
            << kTiming.description << "\n"
            << "    Default: " << kTiming.fallback << "\n"
            << "-" << kTolerance.name << " " << kTolerance.kind << "\n"
            << kTolerance.description << "\n"
            << "    Default: " << kTolerance.fallback << "\n"
            << "-" << kAccelerate.name << " " << kAccelerate.kind << "\n"
            << kAccelerate.description << "\n"
            << "    Default: " << kAccelerate.fallback << "\n"
            << "-" << kMaxMegapixels.name << " " << kMaxMegapixels.kind << "\n"
            << kMaxMegapixels.description << "\n"
            << "    Default: " << kMaxMegapixels.fallback << "\n"
            << "-" << kMaxMemory.name << " " << kMaxMemory.kind << "\n"
            << kMaxMemory.description << "\n"
            << "    Default: " << kMaxMemory.fallback << std::endl;
}

Options readOptions(Cmd& cmd, Params& par) {
  Options options;
  par.lambda = 0;
  par.mu = 0;
  par.eps = 10;
  par.Nsteps = kDefaultIterations;

  warnOfUnknownOptions(cmd);
  std::cout << "Params: " << std::endl;
  readOption(cmd, kImage, options.image);
  readOption(cmd, kDataterm, options.dataterm);
  readOption(cmd, kProportions, options.proportions);
  readOption(cmd, kLambda, par.lambda);
  readOption(cmd, kMu, par.mu);
  readOption(cmd, kEpsilon, par.eps);
  readOption(cmd, kIterations, par.Nsteps);
  readOption(cmd, kWeightcoeff, options.weightcoeff);
  readOption(cmd, kOutprefix, options.outprefix);
  readOption(cmd, kGpu, options.gpu);
  options.timing = readSwitch(cmd, kTiming);
  par.tolerance = readTolerance(cmd, kTolerance);
  par.accelerate = readSwitch(cmd, kAccelerate);
  readLimit(cmd, kMaxMegapixels, options.limits.megapixels);
  readLimit(cmd, kMaxMemory, options.limits.gib);
  refuseEndlessRun(par);
  refuseWhatCannotBeCertified(par);
  warnOfSenselessNumbers(par);
  warnOfOutputFolder(options.outprefix);
  return options;
}

void chooseDevice(Cmd& cmd) {
  DeviceChoice choice = DeviceChoice::automatic;
  std::string error;
  if (cmd.hasArg(kDevice)) {
    const std::string text = cmd.getString(kDevice);
    if (!parseDeviceChoice(text, choice)) {
      error = "ERROR: -device must be auto, cuda or host, but is " + inQuotes(text);
    }
  } else {
    deviceChoiceFromEnvironment(choice, error);
  }
  if (!error.empty()) fail(error);
  chooseBackend(choice, std::cerr);
}

}  // namespace namespace_ratseg
