#include "app/dataterm/problem.h"

#include <algorithm>
#include <utility>

#include "app/dataterm/classifier_costs.h"
#include "app/dataterm/input_error.h"
#include "app/dataterm/known_model.h"
#include "app/dataterm/scribble_picture.h"
#include "app/dataterm/scribble_problem.h"
#include "app/messages.h"

namespace namespace_ratseg {

namespace {

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

InputPicture loadImage(const DatatermOptions& options, const PageChoice& page) {
  return loadInputPicture(options.image, page, options.files, options.limits);
}

// The image that the scribbles were drawn on, where it is another one.
std::optional<InputPicture> loadOther(const DatatermOptions& options) {
  if (options.scribbledImage.empty()) return {};
  return loadInputPicture(options.scribbledImage, scribbledPage(options), options.files,
                          options.limits);
}

// The file of the scribbles, drawn on an image.
ScribbleFile scribbleFile(const DatatermOptions& options, const Image& drawnOn) {
  const bool other = !options.scribbledImage.empty();
  return {options.scribbles, drawnOn, other ? options.scribbledImage : options.image,
          scribbledPage(options), options.files.colours};
}

}  // namespace

std::string sizeOf(const Image& image) {
  return sizeText(static_cast<std::size_t>(image.w), static_cast<std::size_t>(image.h));
}

std::string coloursOfScribbles(const DatatermOptions& options) {
  const std::optional<InputPicture> other = loadOther(options);
  const InputPicture drawnOn = other ? InputPicture() : loadImage(options, scribbledPage(options));
  return listOfColours(scribbleFile(options, other ? other->image : drawnOn.image));
}

Problem::Problem(const DatatermOptions& options, const std::optional<KeptModel>& known)
    : picture(loadImage(options, {options.files.page, "-page"})), voidCost(options.voidCost()) {
  std::optional<LabelPicture> truth;
  if (!options.truth.empty()) {
    truth = loadBeside(options.truth, picture.image, options.image, options.files.page);
  }
  if (options.files.givesCosts()) {
    readCosts(options, truth);
  } else {
    readScribbles(options, truth, known);
  }
  if (truth) takeShares(options, *truth);
}

void Problem::readScribbles(const DatatermOptions& options,
                            const std::optional<LabelPicture>& truth,
                            const std::optional<KeptModel>& known) {
  other = loadOther(options);
  if (!options.scribbles.empty()) {
    scribbles = loadScribbles(scribbleFile(options, scribbled().image));
    if (scribbles.highest() == 0) {
      throw InputError(options.scribbles, "marked pixels (numbers above 0)", "none");
    }
  }
  labels = std::max<std::size_t>(countLabels(scribbles, truth), known ? known->labelCount : 0);
  if (labels < 2) {
    throw InputError(known ? options.model.file : options.scribbles,
                     "marks of at least two labels (a 2 or higher)", "no mark above 1");
  }
  colours = known ? coloursOf(*known, labels)
                  : scribbleColours(scribbles, scribbled().image.pixels.get(), labels);
}

void Problem::readCosts(const DatatermOptions& options, const std::optional<LabelPicture>& truth) {
  ClassifierCosts given = loadClassifierCosts(options, static_cast<std::size_t>(picture.image.w),
                                              static_cast<std::size_t>(picture.image.h));
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

void Problem::takeShares(const DatatermOptions& options, const LabelPicture& truth) {
  shares = namespace_ratseg::shares(truth, labels, options.sharesOfImage);
  if (shares.empty()) {
    throw InputError(options.truth,
                     "foreground pixels (labels below " + std::to_string(labels - 1) + ")",
                     "background alone");
  }
}

}  // namespace namespace_ratseg
