#include "app/dataterm/dataterm_app.h"

#include <iostream>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "app/dataterm/convert_labeling.h"
#include "app/dataterm/costs.h"
#include "app/dataterm/forbidden.h"
#include "app/dataterm/input_error.h"
#include "app/dataterm/known_model.h"
#include "app/dataterm/options.h"
#include "app/dataterm/output_files.h"
#include "app/dataterm/problem.h"
#include "app/dataterm/scribble_warnings.h"
#include "app/messages.h"
#include "app/process.h"
#include "app/usage_wanted.h"
#include "app/version/version.h"
#include "device/selection.h"
#include "util/cudautil.h"

namespace namespace_ratseg {

namespace {

void warnOfScribbles(const Problem& problem, const DatatermOptions& options) {
  std::vector<std::size_t> marks;
  for (const auto& list : problem.colours) marks.push_back(list.size());
  const std::size_t pixels = problem.scribbled().image.count();
  for (const std::string& line : scribbleWarnings(marks, pixels, options)) warn(line);
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

void report(const Problem& problem, const DatatermOptions& options, bool learned) {
  const std::size_t planes = problem.labels + (options.sharesOfImage ? 1 : 0);
  std::cout << "Saved " << options.out << "  (data term of " << planes << " labels, "
            << sizeOf(problem.picture.image) << ")" << std::endl;
  if (!problem.shares.empty()) {
    std::cout << "Saved " << options.proportions << "  (shares of the "
              << (options.sharesOfImage ? "image" : "foreground") << " of " << problem.shares.size()
              << " labels, spread " << shareText(options.spread) << ")" << std::endl;
  }
  if (!options.model.save.empty()) {
    std::cout << "Saved " << options.model.save << "  (model of " << problem.labels << " labels)"
              << std::endl;
  }
  if (!options.files.pictureOut.empty()) {
    std::cout << "Saved " << options.files.pictureOut << "  (the image in 8 bits, for ratseg)"
              << std::endl;
  }
  for (std::size_t k = 0; k < problem.labels; ++k) {
    std::cout << "  " << (k + 1 < planes ? "foreground" : "background") << " label " << k << ": ";
    if (problem.colours.empty()) {
      std::cout << "given costs";
    } else {
      std::cout << problem.colours[k].size()
                << (learned ? " scribble pixels" : " colours of the model");
    }
    if (k < problem.shares.size()) std::cout << ", share " << shareText(problem.shares[k]);
    std::cout << std::endl;
  }
  if (options.sharesOfImage) {
    std::cout << "  background label " << problem.labels << ": void, costs "
              << shareText(static_cast<double>(problem.voidCost)) << " everywhere" << std::endl;
  }
}

void endOnWarnings(const DatatermOptions& options) {
  if (options.strict && warningCount() > 0) throw std::runtime_error(warningsAreErrors());
}

// Costs that another program made, with those of the void background label where there is one.
std::vector<float> givenCosts(Problem& problem, const DatatermOptions& options) {
  const std::size_t planes = problem.labels + (options.sharesOfImage ? 1 : 0);
  problem.costs.resize(planes * problem.picture.image.count(), problem.voidCost);
  return std::move(problem.costs);
}

void run(const DatatermOptions& options) {
  if (!options.files.convert.empty()) return convertLabeling(options);
  if (options.files.listColours) {
    std::cout << coloursOfScribbles(options) << std::flush;
    return;
  }
  refuseOverwriting(options);
  for (const std::string& file : outputNames(options)) removeLeftovers(file);
  std::optional<KeptModel> known;
  if (!options.model.file.empty()) known = loadModel(options.model.file);
  Problem problem(options, known);
  chooseDevice(options);
  const bool learned = !known && !options.files.givesCosts();
  if (learned) warnOfScribbles(problem, options);
  endOnWarnings(options);
  if (options.files.givesCosts()) {
    std::vector<float> rho = givenCosts(problem, options);
    forbidLabels(options, problem.picture.image, problem.labels, problem.voidCost, rho);
    writeFiles(options, rho, problem, {});
  } else {
    const CostInput input = {problem.picture, problem.scribbled(), problem.scribbles,
                             problem.colours, problem.labels};
    CostMaker maker(input, options, std::move(known));
    endOnWarnings(options);
    const std::vector<float> rho = maker.costs(problem.shares);
    writeFiles(options, rho, problem, maker.model());
  }
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
