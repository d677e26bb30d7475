#include "app/dataterm/dataterm_app.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "app/dataterm/classifier_costs.h"
#include "app/dataterm/convert_labeling.h"
#include "app/dataterm/input_error.h"
#include "app/dataterm/input_picture.h"
#include "app/dataterm/label_picture.h"
#include "app/dataterm/options.h"
#include "app/dataterm/scribble_picture.h"
#include "app/dataterm/scribble_problem.h"
#include "app/dataterm/scribble_warnings.h"
#include "app/load_picture.h"
#include "app/messages.h"
#include "app/process.h"
#include "app/usage_wanted.h"
#include "app/version/version.h"
#include "device/selection.h"
#include "util/cudautil.h"
#include "util/file_replacement.h"
#include "util/fileio.h"
#include "util/rgb.h"
#include "util/same_file.h"

namespace namespace_ratseg {

namespace {

std::string numberText(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

std::string sizeOf(const Image& image) {
  return sizeText(static_cast<std::size_t>(image.w), static_cast<std::size_t>(image.h));
}

// The page of the scribbles, and of the image that they were drawn on.
PageChoice scribbledPage(const DatatermOptions& options) {
  const FileOptions& files = options.files;
  if (files.scribbledPage > 0 || !options.scribbledImage.empty()) {
    return {files.scribbledPage > 0 ? files.scribbledPage : files.page, "-scribbled-page"};
  }
  return {files.page, "-page"};
}

// A picture that belongs to the image, and so has its size.
LabelPicture loadBeside(const std::string& file, const Image& image, const std::string& imageFile,
                        std::size_t page) {
  const auto checkSize = [&](std::size_t w, std::size_t h) {
    const std::string expected = sizeOf(image);
    const std::string found = sizeText(w, h);
    if (found != expected) throw InputError(file, expected + " as in " + imageFile, found);
  };
  return LabelPicture::load(file, {warnerOf(file), checkSize}, {page, "-page"});
}

// The image that the scribbles were drawn on, where it is another one.
InputPicture loadScribbled(const DatatermOptions& options) {
  if (options.scribbledImage.empty()) return {};
  return loadInputPicture(options.scribbledImage, scribbledPage(options), options.files,
                          options.limits);
}

// The task to compute, read from the files that the options name.
struct Problem {
  InputPicture picture;
  Image& image;
  std::size_t scribbledPixels = 0;  // of the image that the scribbles were drawn on
  std::size_t labels = 0;           // without the void background label
  std::vector<std::vector<RGB>> colours;
  std::vector<float> costs;    // of another program; empty where scribbles are given
  float voidCost;              // of the void background label, more than all others
  std::vector<double> shares;  // empty without -truth

  explicit Problem(const DatatermOptions& options)
      : picture(loadInputPicture(options.image, {options.files.page, "-page"}, options.files,
                                 options.limits)),
        image(picture.image),
        voidCost(options.voidCost()) {
    std::optional<LabelPicture> truth;
    if (!options.truth.empty()) {
      truth = loadBeside(options.truth, image, options.image, options.files.page);
    }
    if (options.files.givesCosts()) {
      readCosts(options, truth);
    } else {
      readScribbles(options, truth);
    }
    if (truth) takeShares(options, *truth);
  }

 private:
  void readScribbles(const DatatermOptions& options, const std::optional<LabelPicture>& truth) {
    const bool other = !options.scribbledImage.empty();
    const InputPicture otherPicture = loadScribbled(options);
    const Image& scribbled = other ? otherPicture.image : image;
    scribbledPixels = scribbled.count();
    const LabelPicture scribbles =
        loadScribbles({options.scribbles, scribbled, other ? options.scribbledImage : options.image,
                       scribbledPage(options), options.files.colours});
    if (scribbles.highest() == 0) {
      throw InputError(options.scribbles, "marked pixels (numbers above 0)", "none");
    }
    labels = countLabels(scribbles, truth);
    if (labels < 2) {
      throw InputError(options.scribbles, "marks of at least two labels (a 2 or higher)",
                       "no mark above 1");
    }
    colours = scribbleColours(scribbles, scribbled.pixels.get(), labels);
  }

  void readCosts(const DatatermOptions& options, const std::optional<LabelPicture>& truth) {
    ClassifierCosts given = loadClassifierCosts(options, static_cast<std::size_t>(image.w),
                                                static_cast<std::size_t>(image.h));
    labels = given.labels;
    if (truth && truth->highest() >= labels) {
      throw InputError(
          options.truth,
          "labels 0 to " + std::to_string(labels - 1) + " as in " + options.files.costsFile(),
          std::to_string(truth->highest()));
    }
    costs = std::move(given.values);
    voidCost = std::max(voidCost, std::min(100 * given.greatest, 1e36f));
  }

  void takeShares(const DatatermOptions& options, const LabelPicture& truth) {
    shares = namespace_ratseg::shares(truth, labels, options.sharesOfImage);
    if (shares.empty()) {
      throw InputError(options.truth,
                       "foreground pixels (labels below " + std::to_string(labels - 1) + ")",
                       "background alone");
    }
  }
};

void warnOfScribbles(const Problem& problem, const DatatermOptions& options) {
  std::vector<std::size_t> marks;
  for (const auto& list : problem.colours) marks.push_back(list.size());
  for (const std::string& line : scribbleWarnings(marks, problem.scribbledPixels, options)) {
    warn(line);
  }
}

void chooseDevice(const DatatermOptions& options) {
  if (options.device.empty()) {
    backend();  // as RATSEG_DEVICE says
  } else {
    DeviceChoice choice = DeviceChoice::automatic;
    parseDeviceChoice(options.device, choice);
    chooseBackend(choice, std::cerr);
  }
  if (!CudaUtil::hasCuda()) {
    throw InputError(options.device.empty() ? "RATSEG_DEVICE" : "-device " + options.device,
                     "a device to compute on", "none");
  }
}

// Costs that another program made.
std::vector<float> givenDataterm(Problem& problem, const DatatermOptions& options) {
  const std::size_t planes = problem.labels + (options.sharesOfImage ? 1 : 0);
  problem.costs.resize(planes * problem.image.count(), problem.voidCost);
  return std::move(problem.costs);
}

// The data term of all labels, the void background label's last where there is one.
std::vector<float> computeDataterm(Problem& problem, const DatatermOptions& options) {
  if (!problem.costs.empty()) return givenDataterm(problem, options);
  RatSeg solver;
  Params& par = solver.getParams();
  par.w = static_cast<std::size_t>(problem.image.w);
  par.h = static_cast<std::size_t>(problem.image.h);
  par.n = problem.labels;
  const std::size_t planes = problem.labels + (options.sharesOfImage ? 1 : 0);
  std::vector<float> rho(planes * problem.image.count(), problem.voidCost);
  if (!solver.alloc()) throw std::runtime_error("could not allocate solver");
  std::vector<RGB*> lists;
  std::vector<std::size_t> counts;
  for (auto& list : problem.colours) {
    lists.push_back(list.data());
    counts.push_back(list.size());
  }
  solver.setDataterm(problem.image.pixels.get(), lists.data(), counts.data(), options.sigma,
                     options.thr);
  solver.getDataterm(rho.data());
  solver.free();
  return rho;
}

// Hand-drawn scribbles are not to be lost by a slip of the fingers.
void refuseOverwriting(const DatatermOptions& options) {
  const std::string& pictureOut = options.files.pictureOut;
  const auto refuse = [](const std::string& option, const std::string& out, const std::string& in) {
    if (sameFile(out, in)) {
      throw InputError(option + " " + out, "a file of its own", "that it is " + in + " as well");
    }
  };
  for (const std::string& in : {options.image, options.scribbles, options.scribbledImage,
                                options.truth, options.files.costs, options.files.probabilities}) {
    if (in.empty()) continue;
    refuse("-out", options.out, in);
    if (!pictureOut.empty()) refuse("-picture-out", pictureOut, in);
    if (!options.proportions.empty()) refuse("-proportions", options.proportions, in);
  }
  if (!options.proportions.empty()) refuse("-proportions", options.proportions, options.out);
  if (pictureOut.empty()) return;
  refuse("-picture-out", pictureOut, options.out);
  if (!options.proportions.empty()) refuse("-picture-out", pictureOut, options.proportions);
}

[[noreturn]] void failWriting(const std::string& option, const std::string& file, int error) {
  throw InputError(option + " " + file, "a file that can be written", textOfErrno(error));
}

void makePictureOut(const DatatermOptions& options, const InputPicture& picture,
                    FileReplacement& file) {
  std::string error;
  if (makePicture(file, picture, &error)) return;
  throw InputError("-picture-out " + options.files.pictureOut, "a file that can be written", error);
}

// Nothing takes its place unless all is made.
void writeFiles(const DatatermOptions& options, const std::vector<float>& rho,
                const Problem& problem) {
  const std::vector<double>& shares = problem.shares;
  FileReplacement dataterm(options.out);
  // Level 1: higher ones take several times as long and save little on floats.
  if (!FileIO::makeArray(dataterm, rho.data(), rho.size(), 1)) {
    failWriting("-out", options.out, errno);
  }
  FileReplacement proportions(options.proportions);
  std::vector<FileReplacement*> files = {&dataterm};
  if (!shares.empty()) {
    std::string text;
    for (double share : shares) {
      text += numberText(share) + " " + numberText(options.spread) + "\n";
    }
    const auto write = [&](int descriptor) {
      return writeAll(descriptor, text.data(), text.size());
    };
    if (!proportions.make(write)) failWriting("-proportions", options.proportions, errno);
    files.push_back(&proportions);
  }
  FileReplacement picture(options.files.pictureOut);
  if (!options.files.pictureOut.empty()) {
    makePictureOut(options, problem.picture, picture);
    files.push_back(&picture);
  }
  const std::vector<int> errors = finishTogether(files);
  for (std::size_t k = 0; k < files.size(); ++k) {
    if (errors[k] == 0) continue;
    if (files[k] == &dataterm) failWriting("-out", options.out, errors[k]);
    if (files[k] == &proportions) failWriting("-proportions", options.proportions, errors[k]);
    failWriting("-picture-out", options.files.pictureOut, errors[k]);
  }
}

void report(const Problem& problem, const DatatermOptions& options) {
  const std::size_t planes = problem.labels + (options.sharesOfImage ? 1 : 0);
  std::cout << "Saved " << options.out << "  (data term of " << planes << " labels, "
            << sizeOf(problem.image) << ")" << std::endl;
  if (!problem.shares.empty()) {
    std::cout << "Saved " << options.proportions << "  (shares of the "
              << (options.sharesOfImage ? "image" : "foreground") << " of " << problem.shares.size()
              << " labels, spread " << numberText(options.spread) << ")" << std::endl;
  }
  if (!options.files.pictureOut.empty()) {
    std::cout << "Saved " << options.files.pictureOut << "  (the image in 8 bits, for ratseg)"
              << std::endl;
  }
  for (std::size_t k = 0; k < problem.labels; ++k) {
    std::cout << "  " << (k + 1 < planes ? "foreground" : "background") << " label " << k << ": "
              << (problem.colours.empty()
                      ? "given costs"
                      : std::to_string(problem.colours[k].size()) + " scribble pixels");
    if (k < problem.shares.size()) std::cout << ", share " << numberText(problem.shares[k]);
    std::cout << std::endl;
  }
  if (options.sharesOfImage) {
    std::cout << "  background label " << problem.labels << ": void, costs "
              << numberText(problem.voidCost) << " everywhere" << std::endl;
  }
}

void printColours(const DatatermOptions& options) {
  const bool other = !options.scribbledImage.empty();
  const InputPicture drawnOn = other ? loadScribbled(options)
                                     : loadInputPicture(options.image, scribbledPage(options),
                                                        options.files, options.limits);
  std::cout << listOfColours({options.scribbles, drawnOn.image,
                              other ? options.scribbledImage : options.image,
                              scribbledPage(options), ""})
            << std::flush;
}

void run(const DatatermOptions& options) {
  if (!options.files.convert.empty()) return convertLabeling(options);
  if (options.files.listColours) return printColours(options);
  refuseOverwriting(options);
  for (const std::string& file : {options.out, options.proportions, options.files.pictureOut}) {
    if (!file.empty()) removeLeftovers(file);
  }
  Problem problem(options);
  chooseDevice(options);
  if (!options.files.givesCosts()) warnOfScribbles(problem, options);
  if (options.strict && warningCount() > 0) throw std::runtime_error(warningsAreErrors());
  writeFiles(options, computeDataterm(problem, options), problem);
  report(problem, options);
}

}  // namespace

int runDatatermApp(int argc, const char* const* argv) {
  setProgramName("ratseg-dataterm");
  if (versionWanted(argc, argv)) {
    printVersion("ratseg-dataterm", qtVersions());
    return 0;
  }
  if (usageWanted(argc, argv)) {
    std::cout << kDatatermUsage << kFileOptionsUsage;
    return 0;
  }
  try {
    run(DatatermOptions::parse(argc, argv));
    return 0;
  } catch (const std::bad_alloc&) {
    endForLackOfMemory();
  } catch (const std::exception& e) {
    std::cerr << "ERROR: " << e.what() << std::endl;
  }
  return 1;
}

}  // namespace namespace_ratseg
