#include "app/result_files.h"

#include <QImage>
#include <array>
#include <cerrno>
#include <cmath>
#include <future>
#include <iostream>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "app/messages.h"
#include "app/result_names.h"
#include "util/file_replacement.h"
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

// A file on its way.
struct ResultFile {
  explicit ResultFile(const std::string& name_) : name(name_), replacement(name) {}

  std::string name;
  FileReplacement replacement;
  bool made = false;   // ready to take its place
  bool saved = false;  // in its place
  bool memoryMissing = false;
  std::string error;
};

bool report(const ResultFile& file, const char* remark = "") {
  std::cout << (file.saved ? "Saved " : "ERROR saving ") << file.name << remark << std::endl;
  const std::string error = file.memoryMissing ? "there is not enough memory" : file.error;
  if (!file.saved) {
    warn(inQuotes(file.name) + " cannot be saved" + (error.empty() ? "" : ": " + error));
  }
  return file.saved;
}

// Calls make(FileReplacement&, std::string* error) beside what follows.
template <class Make>
std::future<void> begin(ResultFile& file, Make make) {
  return std::async([&file, make = std::move(make)] {
    try {
      file.made = make(file.replacement, &file.error);
    } catch (const std::bad_alloc&) {
      file.memoryMissing = true;
    }
  });
}

// Puts those that are ready into their places.
void placeTogether(const std::vector<ResultFile*>& files) {
  std::vector<ResultFile*> ready;
  std::vector<FileReplacement*> replacements;
  for (ResultFile* file : files) {
    if (!file->made) continue;
    ready.push_back(file);
    replacements.push_back(&file->replacement);
  }
  const std::vector<int> errors = finishTogether(replacements);
  for (std::size_t k = 0; k < ready.size(); ++k) {
    ready[k]->saved = errors[k] == 0;
    ready[k]->error = textOfErrno(errors[k]);
  }
}

void printLegend(const std::vector<RGB>& colours) {
  for (std::size_t i = 0; i < colours.size(); ++i) {
    std::cout << "  Color for " << (i + 1 < colours.size() ? "foreground" : "background")
              << " label " << i << ": (" << colours[i].x << ", " << colours[i].y << ", "
              << colours[i].z << ")\n";
  }
  std::cout << std::flush;
}

// An image without memory for its pixels is null.
bool makePNG(FileReplacement& file, const QImage& image, std::string* error) {
  if (image.isNull()) throw std::bad_alloc();
  return FileIO::makeImagePNG(file, image, error);
}

// w * h colours as a PNG file.
bool makeColourPNG(FileReplacement& file, const RGB* colours, int w, int h, std::string* error) {
  const std::unique_ptr<QImage> image(ImageTransforms::imageToQImage(colours, w, h, nullptr));
  return makePNG(file, *image, error);
}

bool makeGreyPNG(FileReplacement& file, const float* values, int w, int h, std::string* error) {
  const std::unique_ptr<QImage> image(ImageTransforms::imageToQImage<float>(values, w, h));
  return makePNG(file, *image, error);
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
  const std::array<std::string, 4> names = resultFiles(prefix);
  ResultFile labels(names[0]);
  ResultFile colour(names[1]);
  ResultFile overlaid(names[2]);
  ResultFile weights(names[3]);
  const std::vector<RGB> colours = labelColours(n);
  const std::vector<RGB> picture = colourLabeling(labeling, colours);

  // Made side by side, because nearly all the time goes into deflating; put into their places and
  // reported in their order.
  {
    const std::array<std::future<void>, 4> made = {
        begin(labels,
              [&, &labeling = labeling](FileReplacement& file, std::string* error) {
                const bool ok = FileIO::makeArray(file, labeling.data(), labeling.size());
                if (!ok) *error = textOfErrno(errno);
                return ok;
              }),
        begin(colour,
              [&, w = w, h = h](FileReplacement& file, std::string* error) {
                return makeColourPNG(file, picture.data(), w, h, error);
              }),
        begin(overlaid,
              [&, w = w, h = h, image = image](FileReplacement& file, std::string* error) {
                std::vector<RGB> overlay = picture;
                blendOverImage(overlay, image);
                return makeColourPNG(file, overlay.data(), w, h, error);
              }),
        begin(weights,
              [&, w = w, h = h, weight = weight](FileReplacement& file, std::string* error) {
                return makeGreyPNG(file, weight, w, h, error);
              })};
    for (const std::future<void>& one : made) one.wait();
  }
  placeTogether({&labels, &colour, &overlaid, &weights});

  report(labels, "  (zlib-packed plain int array)");
  if (report(colour)) printLegend(colours);
  report(overlaid);
  report(weights);
}

}  // namespace namespace_ratseg
