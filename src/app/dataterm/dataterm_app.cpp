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

#include "app/dataterm/costs.h"
#include "app/dataterm/input_error.h"
#include "app/dataterm/known_model.h"
#include "app/dataterm/label_picture.h"
#include "app/dataterm/options.h"
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

Image loadImage(const std::string& file, const PictureLimits& limits) {
  const std::string expected = "an image of a format that can be read";
  try {
    return loadPicture(file, limits, warnerOf(file));
  } catch (const PictureError& e) {
    switch (e.kind) {
      case PictureError::Kind::unreadable:
        throw InputError::unopened(file, expected, e.what());
      case PictureError::Kind::unknownFormat:
        throw InputError(file, expected, "a file that cannot be decoded: Unsupported image format");
      default:
        throw InputError(file, expected, "a file that " + std::string(e.what()));
    }
  }
}

std::string sizeOf(const Image& image) {
  return sizeText(static_cast<std::size_t>(image.w), static_cast<std::size_t>(image.h));
}

// A picture that belongs to the image, and so has its size.
LabelPicture loadBeside(const std::string& file, const Image& image, const std::string& imageFile) {
  const auto checkSize = [&](std::size_t w, std::size_t h) {
    const std::string expected = sizeOf(image);
    const std::string found = sizeText(w, h);
    if (found != expected) throw InputError(file, expected + " as in " + imageFile, found);
  };
  return LabelPicture::load(file, {warnerOf(file), checkSize});
}

// The task to compute, read from the files that the options name.
struct Problem {
  Image image;
  Image otherImage;  // that the scribbles were drawn on, where that is not the image
  LabelPicture scribbles;
  std::size_t scribbledPixels = 0;  // of the image that the scribbles were drawn on
  std::size_t labels = 0;           // without the void background label
  std::vector<std::vector<RGB>> colours;
  std::vector<double> shares;  // empty without -truth

  Problem(const DatatermOptions& options, const std::optional<KeptModel>& known)
      : image(loadImage(options.image, options.limits)) {
    const bool other = !options.scribbledImage.empty();
    const std::string& scribbledFile = other ? options.scribbledImage : options.image;
    if (other) otherImage = loadImage(scribbledFile, options.limits);
    const Image& scribbled = this->scribbled();
    scribbledPixels = scribbled.count();
    if (!options.scribbles.empty()) {
      scribbles = loadBeside(options.scribbles, scribbled, scribbledFile);
    }
    std::optional<LabelPicture> truth;
    if (!options.truth.empty()) truth = loadBeside(options.truth, image, options.image);
    if (scribbles.highest() == 0 && !options.scribbles.empty()) {
      throw InputError(options.scribbles, "marked pixels (numbers above 0)", "none");
    }
    labels = std::max<std::size_t>(countLabels(scribbles, truth), known ? known->labelCount : 0);
    if (labels < 2) {
      throw InputError(known ? options.model.file : options.scribbles,
                       "marks of at least two labels (a 2 or higher)", "no mark above 1");
    }
    colours = known ? coloursOf(*known, labels)
                    : scribbleColours(scribbles, scribbled.pixels.get(), labels);
    if (truth) {
      shares = namespace_ratseg::shares(*truth, labels, options.sharesOfImage);
      if (shares.empty()) {
        throw InputError(options.truth,
                         "foreground pixels (labels below " + std::to_string(labels - 1) + ")",
                         "background alone");
      }
    }
  }

  const Image& scribbled() const { return otherImage.pixels ? otherImage : image; }
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

// Hand-drawn scribbles are not to be lost by a slip of the fingers.
void refuseOverwriting(const DatatermOptions& options) {
  const auto refuse = [](const std::string& option, const std::string& out, const std::string& in) {
    if (sameFile(out, in)) {
      throw InputError(option + " " + out, "a file of its own", "that it is " + in + " as well");
    }
  };
  std::vector<std::string> inputs = {options.image, options.scribbles, options.scribbledImage,
                                     options.truth, options.model.file};
  for (const auto& [label, file] : options.model.forbidden) inputs.push_back(file);
  const std::vector<std::pair<std::string, std::string>> outputs = {
      {"-out", options.out},
      {"-proportions", options.proportions},
      {"-save-model", options.model.save}};
  for (const auto& [option, out] : outputs) {
    if (out.empty()) continue;
    for (const std::string& in : inputs) {
      if (!in.empty()) refuse(option, out, in);
    }
    inputs.push_back(out);
  }
}

[[noreturn]] void failWriting(const std::string& option, const std::string& file, int error) {
  throw InputError(option + " " + file, "a file that can be written", textOfErrno(error));
}

// A result file, made but not in its place yet.
struct MadeFile {
  std::string option;
  std::string name;
  std::unique_ptr<FileReplacement> file;

  MadeFile(const std::string& o, const std::string& n)
      : option(o), name(n), file(std::make_unique<FileReplacement>(n)) {}
};

MadeFile makeFile(const std::string& option, const std::string& name, const std::string& bytes) {
  MadeFile made(option, name);
  const auto write = [&](int descriptor) {
    return writeAll(descriptor, bytes.data(), bytes.size());
  };
  if (!made.file->make(write)) failWriting(option, name, errno);
  return made;
}

std::string proportionsText(const std::vector<double>& shares, double spread) {
  std::string text;
  for (double share : shares) text += numberText(share) + " " + numberText(spread) + "\n";
  return text;
}

// Nothing takes its place unless all is made.
void writeFiles(const DatatermOptions& options, const std::vector<float>& rho,
                const std::vector<double>& shares, const std::optional<KeptModel>& model) {
  std::vector<MadeFile> made;
  made.emplace_back("-out", options.out);
  // Level 1: higher ones take several times as long and save little on floats.
  if (!FileIO::makeArray(*made[0].file, rho.data(), rho.size(), 1)) {
    failWriting("-out", options.out, errno);
  }
  if (!shares.empty()) {
    made.push_back(
        makeFile("-proportions", options.proportions, proportionsText(shares, options.spread)));
  }
  if (!options.model.save.empty()) {
    if (!model) {
      throw InputError("-save-model", "a model of at least two marked labels", "colours alone");
    }
    made.push_back(makeFile("-save-model", options.model.save, packModel(*model)));
  }
  std::vector<FileReplacement*> files;
  for (const MadeFile& one : made) files.push_back(one.file.get());
  const std::vector<int> errors = finishTogether(files);
  for (std::size_t k = 0; k < made.size(); ++k) {
    if (errors[k] != 0) failWriting(made[k].option, made[k].name, errors[k]);
  }
}

void report(const Problem& problem, const DatatermOptions& options, bool learned) {
  const std::size_t planes = problem.labels + (options.sharesOfImage ? 1 : 0);
  std::cout << "Saved " << options.out << "  (data term of " << planes << " labels, "
            << sizeOf(problem.image) << ")" << std::endl;
  if (!problem.shares.empty()) {
    std::cout << "Saved " << options.proportions << "  (shares of the "
              << (options.sharesOfImage ? "image" : "foreground") << " of " << problem.shares.size()
              << " labels, spread " << numberText(options.spread) << ")" << std::endl;
  }
  if (!options.model.save.empty()) {
    std::cout << "Saved " << options.model.save << "  (model of " << problem.labels << " labels)"
              << std::endl;
  }
  for (std::size_t k = 0; k < problem.labels; ++k) {
    std::cout << "  " << (k + 1 < planes ? "foreground" : "background") << " label " << k << ": "
              << problem.colours[k].size()
              << (learned ? " scribble pixels" : " colours of the model");
    if (k < problem.shares.size()) std::cout << ", share " << numberText(problem.shares[k]);
    std::cout << std::endl;
  }
  if (options.sharesOfImage) {
    std::cout << "  background label " << problem.labels << ": void, costs "
              << numberText(options.voidCost()) << " everywhere" << std::endl;
  }
}

void run(const DatatermOptions& options) {
  refuseOverwriting(options);
  for (const std::string& file : {options.out, options.proportions, options.model.save}) {
    if (!file.empty()) removeLeftovers(file);
  }
  std::optional<KeptModel> known;
  if (!options.model.file.empty()) known = loadModel(options.model.file);
  Problem problem(options, known);
  chooseDevice(options);
  if (!known) warnOfScribbles(problem, options);
  if (options.strict && warningCount() > 0) throw std::runtime_error(warningsAreErrors());
  const CostInput input = {problem.image, problem.scribbled(), problem.scribbles, problem.colours,
                           problem.labels};
  const bool learned = !known;
  CostMaker maker(input, options, std::move(known));
  if (options.strict && warningCount() > 0) throw std::runtime_error(warningsAreErrors());
  const std::vector<float> rho = maker.costs(problem.shares);
  writeFiles(options, rho, problem.shares, maker.model());
  report(problem, options, learned);
}

}  // namespace

int runDatatermApp(int argc, const char* const* argv) {
  setProgramName("ratseg-dataterm");
  if (versionWanted(argc, argv)) {
    printVersion("ratseg-dataterm", qtVersions());
    return 0;
  }
  if (usageWanted(argc, argv)) {
    std::cout << kDatatermUsage;
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
