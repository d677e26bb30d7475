// Prints how well labelings of ratseg do beside the true labels, and puts them side by side into
// one picture.

#include <unistd.h>

#include <QImage>
#include <QPainter>
#include <QtGlobal>
#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "app/dataterm/input_error.h"
#include "app/dataterm/label_picture.h"
#include "app/dataterm/scribble_problem.h"
#include "app/load_picture.h"
#include "app/messages.h"
#include "app/process.h"
#include "app/result_files.h"
#include "app/usage_wanted.h"
#include "app/version/version.h"
#include "labeling_scores.h"
#include "util/cmd.h"
#include "util/fileio.h"
#include "util/imagetransforms.h"

namespace namespace_ratseg {
namespace {

constexpr char kUsage[] =
    "compare_labelings [-truth F] -scribbles F -labelings F.gz ... -names NAME ...\n"
    "                  [-shares foreground|image] [-image F -sheet F.png]\n"
    "\n"
    "Prints a table with the shares of the labels of each labeling that ratseg wrote and, where "
    "the\n"
    "truth is known, its accuracy outside the scribbles. The sheet shows image, truth and "
    "labelings\n"
    "side by side.\n";

struct Comparison {
  LabelPicture scribbles;
  std::optional<LabelPicture> truth;
  std::size_t labels = 0;  // of the truth and the scribbles, without a void background label
  bool sharesOfImage = false;
  std::vector<std::string> names;
  std::vector<std::vector<int>> labelings;
};

// All values of an option.
std::vector<std::string> values(const Cmd& cmd, const std::string& name) {
  const auto found = cmd.values.find(name);
  if (found == cmd.values.end() || found->second.empty()) {
    throw InputError("-" + name, "a value", "none");
  }
  return found->second;
}

std::vector<int> loadLabeling(const std::string& file, std::size_t pixels) {
  std::vector<int> labeling(pixels);
  if (!FileIO::loadArray(file, labeling.data(), labeling.size())) {
    throw InputError(file, std::to_string(labeling.size()) + " labels, one for each pixel",
                     "something else");
  }
  return labeling;
}

LabelPicture loadTruth(const std::string& file, const LabelPicture& scribbles) {
  LabelPicture truth = LabelPicture::load(file);
  if (truth.w != scribbles.w || truth.h != scribbles.h) {
    throw InputError(file, sizeText(scribbles.w, scribbles.h) + " as in the scribbles",
                     sizeText(truth.w, truth.h));
  }
  return truth;
}

Comparison readComparison(const Cmd& cmd) {
  Comparison c;
  c.scribbles = LabelPicture::load(values(cmd, "scribbles")[0]);
  if (cmd.hasArg("truth")) c.truth = loadTruth(values(cmd, "truth")[0], c.scribbles);
  c.labels = countLabels(c.scribbles, c.truth);
  c.sharesOfImage = cmd.hasArg("shares") && values(cmd, "shares")[0] == "image";
  c.names = values(cmd, "names");
  const auto files = values(cmd, "labelings");
  if (files.size() != c.names.size()) {
    throw InputError("-names", std::to_string(files.size()) + " names, one for each labeling",
                     std::to_string(c.names.size()));
  }
  for (const std::string& file : files) {
    c.labelings.push_back(loadLabeling(file, c.scribbles.pixels.size()));
  }
  return c;
}

void printTable(const Comparison& c) {
  std::vector<std::uint8_t> truth;
  std::vector<double> trueShares;
  if (c.truth) {
    truth = c.truth->pixels;
    trueShares = shares(*c.truth, c.labels, c.sharesOfImage);
  }
  const std::size_t listed = c.sharesOfImage ? c.labels : std::max<std::size_t>(c.labels, 1) - 1;
  std::vector<LabelingScore> scores;
  for (std::size_t k = 0; k < c.labelings.size(); ++k) {
    scores.push_back(scoreLabeling(c.names[k], c.labelings[k], truth, c.scribbles.pixels, listed));
  }
  std::cout << scoreTable(trueShares, scores, c.sharesOfImage ? "image" : "foreground");
}

// A labeling in the colours of ratseg's result pictures.
QImage picture(const std::vector<int>& labeling, const Comparison& c) {
  const std::size_t n = c.labels + (c.sharesOfImage ? 1 : 0);
  std::vector<int> known = labeling;
  for (int& label : known) label = std::clamp(label, 0, static_cast<int>(n) - 1);
  const auto colours = colourLabeling(known, labelColours(n));
  const std::unique_ptr<QImage> image(ImageTransforms::imageToQImage(
      colours.data(), static_cast<int>(c.scribbles.w), static_cast<int>(c.scribbles.h), nullptr));
  return *image;
}

QImage drawSheet(const std::string& imageFile, const Comparison& c) {
  constexpr int kWidest = 480;
  constexpr int kGap = 6;
  QImage* loaded = nullptr;
  if (!FileIO::loadImage(imageFile, loaded)) throw InputError(imageFile, "an image", "none");
  std::vector<QImage> panels = {std::move(*std::unique_ptr<QImage>(loaded))};
  if (c.truth) panels.push_back(picture({c.truth->pixels.begin(), c.truth->pixels.end()}, c));
  for (const auto& labeling : c.labelings) panels.push_back(picture(labeling, c));
  const int width = std::min(static_cast<int>(c.scribbles.w), kWidest);
  for (QImage& panel : panels) {
    panel =
        panel.convertToFormat(QImage::Format_RGB32).scaledToWidth(width, Qt::SmoothTransformation);
  }
  QImage sheet(static_cast<int>(panels.size()) * (width + kGap) - kGap, panels[0].height(),
               QImage::Format_RGB32);
  sheet.fill(Qt::darkGray);
  QPainter painter(&sheet);
  for (std::size_t k = 0; k < panels.size(); ++k) {
    painter.drawImage(static_cast<int>(k) * (width + kGap), 0, panels[k]);
  }
  return sheet;
}

int run(int argc, const char* const* argv) {
  if (versionWanted(argc, argv)) {
    printVersion("compare_labelings", qtVersions());
    return 0;
  }
  if (argc <= 1) {
    std::cout << kUsage;
    return 0;
  }
  const Cmd cmd(argc, argv, "", nullptr, 0);
  const Comparison comparison = readComparison(cmd);
  printTable(comparison);
  if (cmd.hasArg("sheet")) {
    const std::string file = values(cmd, "sheet")[0];
    removeLeftovers(file);
    const QImage sheet = drawSheet(values(cmd, "image")[0], comparison);
    if (!FileIO::saveImagePNG(&sheet, file)) throw InputError(file, "a writable file", "none");
  }
  return 0;
}

}  // namespace
}  // namespace namespace_ratseg

int main(int argc, char** argv) {
  namespace_ratseg::prepareProcess(STDERR_FILENO);
  // What Qt says of plugins that it cannot open is not for the user.
  qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  try {
    namespace_ratseg::setProgramName("compare_labelings");
    return namespace_ratseg::run(argc, argv);
  } catch (const std::bad_alloc&) {
    namespace_ratseg::endForLackOfMemory();
  } catch (const std::exception& e) {
    std::cerr << "ERROR: " << e.what() << std::endl;
    return 1;
  }
}
