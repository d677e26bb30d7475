#include "app/dataterm/convert_labeling.h"

#include <QImage>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "app/dataterm/forbidden.h"
#include "app/dataterm/input_error.h"
#include "app/dataterm/input_picture.h"
#include "app/dataterm/label_palette.h"
#include "app/messages.h"
#include "app/process.h"
#include "files/file_error.h"
#include "files/npy.h"
#include "files/tiff_writer.h"
#include "util/file_replacement.h"
#include "util/fileio.h"
#include "util/pictures/complaints.h"
#include "util/same_file.h"

namespace namespace_ratseg {

namespace {

constexpr std::size_t kMostLabels = 65536, kMostColours = 256;

enum class Form { png, tiff, npy };

Form formOf(const std::string& out) {
  const std::size_t dot = out.rfind('.');
  std::string ending = dot == std::string::npos ? "" : out.substr(dot + 1);
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (ending == "png") return Form::png;
  if (ending == "tif" || ending == "tiff") return Form::tiff;
  if (ending == "npy") return Form::npy;
  throw InputError("-out", "a name that ends in .png, .tif or .npy", inQuotes(out));
}

struct Labeling {
  std::size_t w = 0, h = 0;
  std::vector<int> labels;
  std::vector<std::size_t> counts;  // pixels of each label
  Palette palette;                  // empty where there are too many labels
};

void readLabels(const std::string& file, const std::string& expected, Labeling& labeling) {
  labeling.labels.resize(labeling.w * labeling.h);
  const std::size_t bytes = 8 + labeling.labels.size() * sizeof(int);
  const FileIO::GZContents found = FileIO::inspectGZ(file, bytes + 1);
  if (!found.opened) throw InputError::unopened(file, expected, textOfErrno(errno));
  if (found.cut || !found.error.empty()) {
    throw InputError(file, expected,
                     "a file that is damaged" + (found.error.empty() ? "" : ": " + found.error));
  }
  if (found.bytes != bytes || found.count != labeling.labels.size()) {
    throw InputError(file, expected, "a file of another size or kind");
  }
  if (!FileIO::loadArray(file, labeling.labels.data(), labeling.labels.size())) {
    throw InputError(file, expected, "a file that cannot be read");
  }
}

Labeling load(const std::string& file, const Image& image) {
  Labeling labeling;
  labeling.w = static_cast<std::size_t>(image.w);
  labeling.h = static_cast<std::size_t>(image.h);
  const std::string expected =
      "a labeling of " + sizeText(labeling.w, labeling.h) + " as ratseg writes it";
  readLabels(file, expected, labeling);
  const auto [least, most] = std::minmax_element(labeling.labels.begin(), labeling.labels.end());
  if (*least < 0 || static_cast<std::size_t>(*most) >= kMostLabels) {
    throw InputError(file, expected,
                     "a file with " + std::to_string(*least < 0 ? *least : *most) +
                         ", which is no label (a data term?)");
  }
  labeling.counts.resize(static_cast<std::size_t>(*most) + 1);
  for (int label : labeling.labels) ++labeling.counts[static_cast<std::size_t>(label)];
  if (labeling.counts.size() <= kMostColours)
    labeling.palette = labelPalette(labeling.counts.size());
  return labeling;
}

bool makePng(FileReplacement& file, const Labeling& labeling, std::string* error) {
  QImage image(static_cast<int>(labeling.w), static_cast<int>(labeling.h), QImage::Format_Indexed8);
  if (image.isNull()) throw std::bad_alloc();
  QList<QRgb> colours;
  for (const auto& [r, g, b] : labeling.palette) colours.push_back(qRgb(r, g, b));
  image.setColorTable(colours);
  for (std::size_t y = 0; y < labeling.h; ++y) {
    std::transform(labeling.labels.begin() + static_cast<std::ptrdiff_t>(y * labeling.w),
                   labeling.labels.begin() + static_cast<std::ptrdiff_t>((y + 1) * labeling.w),
                   image.scanLine(static_cast<int>(y)),
                   [](int label) { return static_cast<uchar>(label); });
  }
  const Complaints ignored;  // of plugins that Qt looks for
  return FileIO::makeImagePNG(file, image, error);
}

bool makeBytes(FileReplacement& file, const std::string& bytes, std::string* error) {
  const bool ok =
      file.make([&](int descriptor) { return writeAll(descriptor, bytes.data(), bytes.size()); });
  if (!ok) *error = textOfErrno(errno);
  return ok;
}

// What was written, for the first line.
std::string write(const DatatermOptions& options, Form form, const Labeling& labeling,
                  const KeptTags& kept) {
  FileReplacement file(options.out);
  std::string error, kind;
  bool ok = false;
  if (form == Form::png) {
    kind = "8-bit indexed PNG";
    ok = makePng(file, labeling, &error);
  } else if (form == Form::tiff) {
    kind = labeling.palette.empty() ? "16-bit TIFF" : "8-bit indexed TIFF";
    ok = makeBytes(
        file, tiffOfLabels(labeling.labels.data(), labeling.w, labeling.h, labeling.palette, kept),
        &error);
  } else {
    kind = "numpy array of 32-bit integers";
    ok = makeBytes(file, npyOfLabels(labeling.labels.data(), labeling.w, labeling.h), &error);
  }
  if (ok) {
    FileReplacement* const files[] = {&file};
    const int failed = finishTogether(files)[0];
    ok = failed == 0;
    if (!ok) error = textOfErrno(failed);
  }
  if (!ok) throw InputError("-out " + options.out, "a file that can be written", error);
  return kind;
}

void report(const DatatermOptions& options, const std::string& kind, const Labeling& labeling) {
  std::cout << "Saved " << options.out << "  (" << kind << " of "
            << sizeText(labeling.w, labeling.h) << ")" << std::endl;
  for (std::size_t k = 0; k < labeling.counts.size(); ++k) {
    std::cout << "  label " << k << ": ";
    if (!labeling.palette.empty()) {
      char colour[8];
      const auto& [r, g, b] = labeling.palette[k];
      std::snprintf(colour, sizeof colour, "%02x%02x%02x", r, g, b);
      std::cout << "colour " << colour << ", ";
    }
    std::cout << labeling.counts[k] << " pixels" << std::endl;
  }
}

}  // namespace

void convertLabeling(const DatatermOptions& options) {
  const Form form = formOf(options.out);
  for (const std::string& in : {options.image, options.files.convert}) {
    if (!sameFile(options.out, in)) continue;
    throw InputError("-out " + options.out, "a file of its own", "that it is " + in + " as well");
  }
  removeLeftovers(options.out);
  const InputPicture picture =
      loadInputPicture(options.image, {options.files.page, "-page"}, options.files, options.limits);
  const Labeling labeling = load(options.files.convert, picture.image);
  if (form == Form::png && labeling.palette.empty()) {
    throw InputError("-out", "a .tif or .npy file, since a PNG holds at most 256 labels",
                     std::to_string(labeling.counts.size()) + " labels");
  }
  tellForbidden(options, picture.image, labeling.labels);
  if (options.strict && warningCount() > 0) throw std::runtime_error(warningsAreErrors());
  report(options, write(options, form, labeling, picture.kept), labeling);
}

}  // namespace namespace_ratseg
