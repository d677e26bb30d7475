#include "app/dataterm/scribble_picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

#include "app/dataterm/colour_strokes.h"
#include "app/dataterm/input_error.h"
#include "app/dataterm/smoothed_marks.h"
#include "app/messages.h"
#include "files/deep_png.h"
#include "files/file_error.h"
#include "files/tiff_reader.h"
#include "util/pictures/png_reader.h"

namespace namespace_ratseg {

namespace {

constexpr char kExpected[] =
    "scribbles as label numbers (8-bit grey or indexed PNG, TIFF) or as pure colours (PNG, TIFF)";

using Assignment = std::map<ColourNumber, std::size_t>;

void checkSize(const ScribbleFile& scribbles, std::size_t w, std::size_t h) {
  const std::string expected = sizeText(static_cast<std::size_t>(scribbles.drawnOn.w),
                                        static_cast<std::size_t>(scribbles.drawnOn.h));
  const std::string found = sizeText(w, h);
  if (found != expected) {
    throw InputError(scribbles.file, expected + " as in " + scribbles.drawnOnFile, found);
  }
}

// The picture, where it is one of colours; false where it is one of label numbers.
bool readColours(const ScribbleFile& scribbles, const std::string& bytes, Raster& picture) {
  const CheckRasterSize check = [&](std::size_t w, std::size_t h, std::size_t) {
    checkSize(scribbles, w, h);
  };
  if (beginsTiff(bytes)) {
    const TiffFile tiff(bytes);
    const std::size_t number =
        tiff.pages() == 1 ? 1 : scribbles.page.of(scribbles.file, tiff.pages());
    const TiffPage& page = tiff.page(number);
    if (page.channels == 1 && page.alphaSample < 0) return false;
    TiffFile::Wanted wanted;
    wanted.alpha = true;
    picture = tiff.read(number, check, wanted);
    const bool usable = picture.samples.kind == SampleKind::unsignedInteger &&
                        (picture.samples.bits == 8 || picture.samples.bits == 16) &&
                        (picture.channels == 1 || picture.channels == 3);
    if (!usable) {
      throw FileError("has " + std::to_string(picture.channels) + " channels of " +
                      sampleText(picture.samples));
    }
    return true;
  }
  PngHeader header;
  if (!readPngHeader(bytes, header)) return false;
  if (header.colourType == PngHeader::kGrey || header.colourType == PngHeader::kIndexed) {
    return false;
  }
  picture = readDeepPng(bytes, check, true);
  return true;
}

// Whether a picture of many colours is the image itself with something drawn into it: of the pixels
// that are marked, most are as in the image.
template <class IsAsInImage>
bool isOverlay(std::size_t marked, std::size_t colours, std::size_t pixels, IsAsInImage&& isAs) {
  constexpr std::size_t kFewColours = 32;
  if (colours < kFewColours || marked == 0) return false;
  std::size_t same = 0;
  for (std::size_t p = 0; p < pixels; ++p) same += isAs(p) ? 1 : 0;
  return 2 * same > marked;
}

bool near(float part, unsigned byte) {
  constexpr float kNear = 6;
  return std::abs(part * 255 - static_cast<float>(byte)) <= kNear;
}

[[noreturn]] void failAsOverlay(const ScribbleFile& scribbles) {
  throw InputError(scribbles.file,
                   "strokes alone, on a layer of their own (transparent or of one colour)",
                   scribbles.drawnOnFile + " with strokes drawn into it");
}

void refuseColouredOverlay(const ScribbleFile& scribbles, const Raster& picture) {
  const bool opaque =
      picture.alpha.empty() || *std::min_element(picture.alpha.begin(), picture.alpha.end()) > 0;
  if (!opaque) return;
  const double unit = picture.samples.bits == 16 ? 257 : 1;
  const auto byteAt = [&](std::size_t c, std::size_t p) {
    const double value = picture.plane(c < picture.channels ? c : 0)[p];
    return static_cast<unsigned>(std::lround(value / unit));
  };
  std::map<unsigned, std::size_t> counts;
  for (std::size_t p = 0; p < picture.count(); ++p) {
    ++counts[byteAt(0, p) << 16 | byteAt(1, p) << 8 | byteAt(2, p)];
  }
  const auto most =
      std::max_element(counts.begin(), counts.end(),
                       [](const auto& a, const auto& b) { return a.second < b.second; });
  const RGB* const image = scribbles.drawnOn.pixels.get();
  const auto isAs = [&](std::size_t p) {
    const unsigned r = byteAt(0, p), g = byteAt(1, p), b = byteAt(2, p);
    return (r << 16 | g << 8 | b) != most->first && near(image[p].x, r) && near(image[p].y, g) &&
           near(image[p].z, b);
  };
  const std::size_t marked = picture.count() - most->second;
  if (isOverlay(marked, counts.size(), picture.count(), isAs)) failAsOverlay(scribbles);
}

void refuseGreyOverlay(const ScribbleFile& scribbles, const LabelPicture& marks) {
  const auto counts = marks.histogram();
  const auto different = static_cast<std::size_t>(
      std::count_if(counts.begin(), counts.end(), [](std::size_t n) { return n > 0; }));
  const RGB* const image = scribbles.drawnOn.pixels.get();
  const auto isAs = [&](std::size_t p) {
    const float grey = (image[p].x + image[p].y + image[p].z) / 3;
    return marks.pixels[p] > 0 && near(grey, marks.pixels[p]);
  };
  const std::size_t marked = marks.pixels.size() - counts[0];
  if (isOverlay(marked, different, marks.pixels.size(), isAs)) failAsOverlay(scribbles);
}

void refuseMask(const ScribbleFile& scribbles, const LabelPicture& marks) {
  const auto counts = marks.histogram();
  if (counts[255] == 0 || counts[0] + counts[255] != marks.pixels.size()) return;
  throw InputError(scribbles.file,
                   "label numbers: 0 where nothing is marked, 1 for label 0, 2 for label 1 and so "
                   "on",
                   "a mask of 0 and 255, which marks a single thing (with numpy: 1 * (a > 0) + 2 * "
                   "(b > 0) makes label numbers of two masks a and b)");
}

Assignment inOrder(const std::vector<ColourNumber>& colours) {
  Assignment labels;
  for (std::size_t k = 0; k < colours.size(); ++k) labels[colours[k]] = k;
  return labels;
}

Assignment givenColours(const std::string& text) {
  Assignment labels;
  if (!parseColours(text, labels)) {
    throw InputError("-colours", "a label from 0 to 254 for each colour, as ff0000=0,00ff00=1",
                     inQuotes(text));
  }
  return labels;
}

std::string optionText(const Assignment& labels) {
  std::map<std::size_t, std::string> byLabel;
  for (const auto& [colour, label] : labels) {
    std::string& text = byLabel[label];
    if (!text.empty()) text += ",";
    text += colourText(colour) + "=" + std::to_string(label);
  }
  std::string all;
  for (const auto& [label, text] : byLabel) {
    if (!all.empty()) all += ",";
    all += text;
  }
  return "-colours \"" + all + "\"";
}

Assignment assignmentOf(const ScribbleFile& scribbles, const ColourStrokes& strokes) {
  return scribbles.colours.empty() ? inOrder(strokes.byHue()) : givenColours(scribbles.colours);
}

std::string unmarkedText(const ColourStrokes& strokes) {
  return strokes.transparent ? "what is transparent" : colourText(strokes.unmarked);
}

LabelPicture marksOf(const ScribbleFile& scribbles, const Raster& picture) {
  const ColourStrokes strokes = findStrokes(picture);
  const Assignment labels = assignmentOf(scribbles, strokes);
  const auto say = warnerOf(scribbles.file);
  LabelPicture marks{picture.w, picture.h, std::vector<std::uint8_t>(picture.count())};
  for (const auto& [colour, label] : labels) marks.declared = std::max(marks.declared, label + 1);
  for (const auto& [colour, count] : strokes.counts) {
    if (labels.contains(colour)) continue;
    say("has " + std::to_string(count) + " pixels of " + colourText(colour) +
        ", to which -colours gives no label; they are left out");
  }
  for (std::size_t p = 0; p < marks.pixels.size(); ++p) {
    if (!strokes.marked[p]) continue;
    const auto found = labels.find(strokes.pixels[p]);
    if (found != labels.end()) marks.pixels[p] = static_cast<std::uint8_t>(found->second + 1);
  }
  if (strokes.left > 0) {
    say("has " + std::to_string(strokes.left) +
        " pixels on smoothed rims of strokes, in colours between the pure ones; they are left out");
  }
  note(scribbles.file + " is read as " + optionText(labels) + "; unmarked is " +
       unmarkedText(strokes));
  return marks;
}

std::string readBytes(const ScribbleFile& scribbles) {
  std::string bytes = LabelPicture::read(scribbles.file, kExpected);
  if (bytes.starts_with("\xff\xd8\xff")) {
    throw InputError(scribbles.file, kExpected,
                     "a JPEG, which blurs the colours of strokes; save them as PNG");
  }
  return bytes;
}

LabelPicture numbersOf(const ScribbleFile& scribbles, const std::string& bytes) {
  const LabelPicture::Hooks hooks = {
      warnerOf(scribbles.file), [&](std::size_t w, std::size_t h) { checkSize(scribbles, w, h); }};
  LabelPicture marks = LabelPicture::decode(bytes, scribbles.file, hooks, scribbles.page);
  refuseMask(scribbles, marks);
  refuseGreyOverlay(scribbles, marks);
  if (const std::size_t left = leaveOutSmoothed(marks); left > 0) {
    warnerOf(scribbles.file)("has " + std::to_string(left) +
                             " pixels on smoothed rims of strokes, with numbers between those of "
                             "strokes and 0; they are left out");
  }
  if (!scribbles.colours.empty()) {
    throw InputError("-colours", "scribbles in colours",
                     scribbles.file + " with label numbers, which need no -colours");
  }
  return marks;
}

}  // namespace

LabelPicture loadScribbles(const ScribbleFile& scribbles) {
  const std::string bytes = readBytes(scribbles);
  try {
    Raster picture;
    if (!readColours(scribbles, bytes, picture)) return numbersOf(scribbles, bytes);
    refuseColouredOverlay(scribbles, picture);
    return marksOf(scribbles, picture);
  } catch (const FileError& e) {
    throw InputError(scribbles.file, kExpected, "a file that " + std::string(e.what()));
  }
}

std::string listOfColours(const ScribbleFile& scribbles) {
  const std::string bytes = readBytes(scribbles);
  try {
    Raster picture;
    if (!readColours(scribbles, bytes, picture)) {
      return scribbles.file + " has label numbers, not colours\n";
    }
    refuseColouredOverlay(scribbles, picture);
    const ColourStrokes strokes = findStrokes(picture);
    const Assignment labels = assignmentOf(scribbles, strokes);
    std::string text = optionText(labels) + "\n";
    for (const auto& [colour, count] : strokes.counts) {
      const auto found = labels.find(colour);
      text += "  " + colourText(colour) + ": " +
              (found == labels.end() ? "no label" : "label " + std::to_string(found->second)) +
              ", " + std::to_string(count) + " pixels\n";
    }
    text += "  unmarked: " + unmarkedText(strokes) + "\n";
    text += "  left out: " + std::to_string(strokes.left) + " pixels on smoothed rims\n";
    return text;
  } catch (const FileError& e) {
    throw InputError(scribbles.file, kExpected, "a file that " + std::string(e.what()));
  }
}

}  // namespace namespace_ratseg
