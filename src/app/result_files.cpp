#include "app/result_files.h"

#include <QImage>
#include <cmath>
#include <future>
#include <iostream>
#include <limits>
#include <memory>
#include <utility>

#include "app/messages.h"
#include "util/fileio.h"
#include "util/imagetransforms.h"

namespace namespace_ratseg {

namespace {

// The colour of a hue (1 = once around the circle) at full saturation and value.
RGB hueColour(float hue) {
  const float sector = (hue - std::floor(hue)) * 6.0f;
  const int k = static_cast<int>(std::floor(sector));
  const float f = sector - static_cast<float>(k);
  const float q = 1.0f - f;
  const float t = 1.0f - q;
  switch (k) {
    case 0:
      return {1, t, 0, 1};
    case 1:
      return {q, 1, 0, 1};
    case 2:
      return {0, 1, t, 1};
    case 3:
      return {0, q, 1, 1};
    case 4:
      return {t, 0, 1, 1};
    default:
      return {1, 0, q, 1};
  }
}

// How saving a file ended.
struct Outcome {
  bool saved = false;
  std::string error;
};

bool report(const Outcome& outcome, const std::string& file, const char* remark = "") {
  std::cout << (outcome.saved ? "Saved " : "ERROR saving ") << file << remark << std::endl;
  if (!outcome.saved && !outcome.error.empty()) {
    warn(inQuotes(file) + " cannot be saved: " + outcome.error);
  }
  return outcome.saved;
}

// Calls save(std::string* error) beside what follows.
template <class Save>
std::future<Outcome> begin(Save save) {
  return std::async([save = std::move(save)] {
    Outcome outcome;
    outcome.saved = save(&outcome.error);
    return outcome;
  });
}

void printLegend(const std::vector<RGB>& colours) {
  for (std::size_t i = 0; i < colours.size(); ++i) {
    std::cout << "  Color for " << (i + 1 < colours.size() ? "foreground" : "background")
              << " label " << i << ": (" << colours[i].x << ", " << colours[i].y << ", "
              << colours[i].z << ")\n";
  }
  std::cout << std::flush;
}

bool saveGreyPNG(const float* values, int w, int h, const std::string& file, std::string* error) {
  const std::unique_ptr<QImage> image(ImageTransforms::imageToQImage<float>(values, w, h));
  return FileIO::saveImagePNG(image.get(), file, error);
}

}  // namespace

std::vector<RGB> labelColours(std::size_t n) {
  std::vector<RGB> colours(n);
  for (std::size_t i = 0; i + 1 < n; ++i) {
    colours[i] = hueColour(static_cast<float>(i) / static_cast<float>(n - 1) + 0.33333334f);
  }
  colours[n - 1] = {1, 1, 1, 1};
  return colours;
}

std::vector<int> hardLabeling(const float* solution, std::size_t pixels, std::size_t n) {
  std::vector<int> labeling(pixels);
  for (std::size_t p = 0; p < pixels; ++p) {
    float best = std::numeric_limits<float>::lowest();
    for (std::size_t i = 0; i < n; ++i) {
      const float value = solution[i * pixels + p];
      if (value > best) {
        best = value;
        labeling[p] = static_cast<int>(i);
      }
    }
  }
  return labeling;
}

std::vector<RGB> colourLabeling(const std::vector<int>& labeling, const std::vector<RGB>& colours) {
  std::vector<RGB> image(labeling.size());
  for (std::size_t p = 0; p < image.size(); ++p) {
    image[p] = colours[static_cast<std::size_t>(labeling[p])];
  }
  return image;
}

void blendOverImage(std::vector<RGB>& colours, const RGB* image) {
  for (std::size_t p = 0; p < colours.size(); ++p) {
    RGB& c = colours[p];
    c = {image[p].x * 0.4f + c.x * 0.6f, image[p].y * 0.4f + c.y * 0.6f,
         image[p].z * 0.4f + c.z * 0.6f, 1.0f};
  }
}

void writeResultFiles(const std::string& prefix, const Results& results) {
  const auto& [w, h, n, labeling, image, weight] = results;
  const std::string labelingFile = prefix + "_result_labeling.gz";
  const std::string colourFile = prefix + "_result_labeling.png";
  const std::string overlayFile = prefix + "_result_labeling_overlaid.png";
  const std::string weightFile = prefix + "_regularizer_weight.png";
  const std::vector<RGB> colours = labelColours(n);
  const std::vector<RGB> picture = colourLabeling(labeling, colours);

  // Made side by side, because nearly all the time goes into deflating; reported in their order.
  auto labelingSaved = begin([&, &labeling = labeling](std::string* error) {
    return FileIO::saveArray(labelingFile, labeling.data(), labeling.size(), error);
  });
  auto colourSaved = begin([&, w = w, h = h](std::string* error) {
    return FileIO::saveImagePNG(picture.data(), w, h, colourFile, error);
  });
  auto overlaySaved = begin([&, w = w, h = h, image = image](std::string* error) {
    std::vector<RGB> overlay = picture;
    blendOverImage(overlay, image);
    return FileIO::saveImagePNG(overlay.data(), w, h, overlayFile, error);
  });
  auto weightSaved = begin([&, w = w, h = h, weight = weight](std::string* error) {
    return saveGreyPNG(weight, w, h, weightFile, error);
  });

  report(labelingSaved.get(), labelingFile, "  (zlib-packed plain int array)");
  if (report(colourSaved.get(), colourFile)) printLegend(colours);
  report(overlaySaved.get(), overlayFile);
  report(weightSaved.get(), weightFile);
}

}  // namespace namespace_ratseg
