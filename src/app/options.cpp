#include "app/options.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <utility>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "app/messages.h"
#include "app/option_values.h"
#include "app/result_names.h"
#include "device/selection.h"
#include "util/cmd.h"
#include "util/same_file.h"

namespace namespace_ratseg {

namespace {

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
// The usage screen announces 10000 where 5000 is used; both are intentional.
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

constexpr OptionText kDevice = {
    "device", "auto|cuda|host",
    "    Compute on CUDA GPUs, on the host, or on the host when there is no GPU (auto)", "auto"};
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
constexpr OptionText kStrict = {
    "strict", "0|1",
    "    Take warnings as errors: end before the computation where there are any, and with status\n"
    "    1 where there are any after it",
    "0"};
constexpr OptionText kProgress = {
    "progress", "0|1",
    "    Show on standard error how far the iteration is: in a line that is rewritten on a\n"
    "    terminal, in one every 10 seconds elsewhere",
    "1 on a terminal, for runs of more than 2 seconds; otherwise 0"};

constexpr OptionText kMaxMegapixels = {
    "max-megapixels", "<float>",
    "    Refuse images of more pixels, in millions, before they are decoded", "150"};
constexpr OptionText kMaxMemory = {
    "max-memory", "<float>",
    "    Refuse images and runs on the host that are estimated to need more memory, in GiB",
    "what is available, of which runs are only warned"};

// These are not echoed, and described on standard error.
constexpr std::array<const OptionText*, 8> kMoreOptions = {&kDevice,        &kTiming,   &kTolerance,
                                                           &kAccelerate,    &kStrict,   &kProgress,
                                                           &kMaxMegapixels, &kMaxMemory};

bool isKnown(const std::string& name) {
  const auto has = [&](const OptionText* option) { return name == option->name; };
  return std::any_of(kOptions.begin(), kOptions.end(), has) ||
         std::any_of(kMoreOptions.begin(), kMoreOptions.end(), has);
}

// Hint at what an unknown option probably stands for: -name=value or --name.
std::string hintOfUnknown(const std::string& name) {
  const std::size_t equals = std::min(name.find('='), name.size());
  const std::size_t minus = name.starts_with('-') ? 1 : 0;
  const std::string word = name.substr(minus, equals - minus);
  if (!isKnown(word)) return "";
  std::string meant = "-";
  meant += word;
  if (equals < name.size()) meant.append(" ").append(name, equals + 1);
  return "; write " + inQuotes(meant);
}

void warnOfUnknownOptions(const Cmd& cmd) {
  for (const auto& [name, values] : cmd.values) {
    if (isKnown(name)) continue;
    warnOfOption("unknown option " + inQuotes("-" + name) + " is ignored" + hintOfUnknown(name));
  }
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
  if (par.lambda < 0) warnOfOption("-lambda should not be negative");
  if (!(par.eps > 0)) warnOfOption("-epsilon should be positive");
}

// A result of the run before is easily named as an input of this one.
void refuseOverwriting(const Options& options) {
  const std::pair<const OptionText&, const std::string&> inputs[] = {
      {kImage, options.image}, {kDataterm, options.dataterm}, {kProportions, options.proportions}};
  for (const auto& [option, input] : inputs) {
    for (const std::string& result : resultFiles(options.outprefix)) {
      if (!sameFile(input, result)) continue;
      fail(std::string("ERROR: -") + option.name + " " + input +
           " is the same file as the result " + result +
           ", which would be written over it; give another -" + kOutprefix.name);
    }
  }
}

ProgressWanted readProgress(Cmd& cmd) {
  if (!cmd.hasArg(kProgress.name)) return ProgressWanted::automatic;
  return readSwitch(cmd, kProgress) ? ProgressWanted::always : ProgressWanted::never;
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
  const char* begin = "Also: ";
  for (const OptionText* option : kMoreOptions) {
    std::cerr << begin << "-" << option->name << " " << option->kind << "\n"
              << option->description << "\n"
              << "    Default: " << option->fallback << std::endl;
    begin = "";
  }
  std::cerr << "-version alone prints the version and what the program was built with" << std::endl;
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
  warnOfMoreValues(cmd, kDevice);
  options.timing = readSwitch(cmd, kTiming);
  par.tolerance = readNumberFrom0(cmd, kTolerance);
  par.accelerate = readSwitch(cmd, kAccelerate);
  options.strict = readSwitch(cmd, kStrict);
  options.progress = readProgress(cmd);
  readLimit(cmd, kMaxMegapixels, options.limits.megapixels);
  readLimit(cmd, kMaxMemory, options.limits.gib);
  refuseEndlessRun(par);
  refuseWhatCannotBeCertified(par);
  refuseOverwriting(options);
  warnOfSenselessNumbers(par);
  warnOfOutputFolder(options.outprefix);
  return options;
}

void chooseDevice(Cmd& cmd) {
  DeviceChoice choice = DeviceChoice::automatic;
  std::string error;
  if (cmd.hasArg(kDevice.name)) {
    const std::string text = cmd.getString(kDevice.name);
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
