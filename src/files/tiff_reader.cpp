#include "files/tiff_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "files/file_error.h"
#include "files/memory_tiff.h"
#include "files/tiff_rows.h"
#include "files/tiff_tags.h"

namespace namespace_ratseg {

namespace {

constexpr std::size_t kMostPages = 100000;

template <class T>
T field(TIFF* tiff, std::uint32_t tag, T otherwise) {
  T value = otherwise;
  return TIFFGetFieldDefaulted(tiff, tag, &value) != 0 ? value : otherwise;
}

bool isPicture(TIFF* tiff) {
  constexpr std::uint32_t kReduced = 1, kMask = 4;
  constexpr std::uint16_t kOldReduced = 2;
  const auto kind = field<std::uint32_t>(tiff, TIFFTAG_SUBFILETYPE, 0);
  return (kind & (kReduced | kMask)) == 0 &&
         field<std::uint16_t>(tiff, TIFFTAG_OSUBFILETYPE, 0) != kOldReduced;
}

SampleKind kindOf(TIFF* tiff) {
  switch (field<std::uint16_t>(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT)) {
    case SAMPLEFORMAT_UINT:
    case SAMPLEFORMAT_VOID:
      return SampleKind::unsignedInteger;
    case SAMPLEFORMAT_INT:
      return SampleKind::signedInteger;
    case SAMPLEFORMAT_IEEEFP:
      return SampleKind::floating;
    default:
      throw FileError("holds complex numbers, which are no picture");
  }
}

// The sample that is transparency: the first extra one that says so.
int alphaOf(TIFF* tiff, std::size_t samplesPerPixel) {
  std::uint16_t count = 0;
  std::uint16_t* types = nullptr;
  if (TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &count, &types) == 0) return -1;
  for (std::size_t k = 0; k < count && k < samplesPerPixel; ++k) {
    if (types[k] == EXTRASAMPLE_ASSOCALPHA || types[k] == EXTRASAMPLE_UNASSALPHA) {
      return static_cast<int>(samplesPerPixel - count + k);
    }
  }
  return -1;
}

std::string descriptionOf(TIFF* tiff) {
  char* text = nullptr;
  return TIFFGetField(tiff, TIFFTAG_IMAGEDESCRIPTION, &text) != 0 && text != nullptr ? text : "";
}

TiffPage describe(TIFF* tiff) {
  TiffPage page;
  page.w = field<std::uint32_t>(tiff, TIFFTAG_IMAGEWIDTH, 0);
  page.h = field<std::uint32_t>(tiff, TIFFTAG_IMAGELENGTH, 0);
  page.samplesPerPixel = field<std::uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  page.samples = {kindOf(tiff), field<std::uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE, 1)};
  std::uint16_t photometric = page.samplesPerPixel >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
  TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
  page.photometric = photometric;
  page.palette = photometric == PHOTOMETRIC_PALETTE && page.samplesPerPixel == 1;
  page.compression = field<std::uint16_t>(tiff, TIFFTAG_COMPRESSION, 1);
  page.converted = photometric == PHOTOMETRIC_YCBCR || photometric == PHOTOMETRIC_SEPARATED ||
                   photometric == PHOTOMETRIC_CIELAB || photometric == PHOTOMETRIC_ICCLAB ||
                   photometric == PHOTOMETRIC_LOGL || photometric == PHOTOMETRIC_LOGLUV;
  page.separate = field<std::uint16_t>(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) ==
                      PLANARCONFIG_SEPARATE &&
                  page.samplesPerPixel > 1;
  page.tiled = TIFFIsTiled(tiff) != 0;
  page.alphaSample = page.samplesPerPixel > 1 ? alphaOf(tiff, page.samplesPerPixel) : -1;
  page.channels = page.samplesPerPixel - (page.alphaSample >= 0 ? 1 : 0);
  page.orientation = field<std::uint16_t>(tiff, TIFFTAG_ORIENTATION, 1);
  page.description = descriptionOf(tiff);
  return page;
}

// The pictures that ImageJ says there are, where it writes one directory for all of them; else 0.
std::size_t picturesOfImageJ(const std::string& description) {
  if (!description.starts_with("ImageJ=")) return 0;
  const std::size_t at = description.find("\nimages=");
  if (at == std::string::npos) return 0;
  std::size_t count = 0;
  const char* const begin = description.data() + at + 8;
  std::from_chars(begin, description.data() + description.size(), count);
  return count;
}

void setColours(const TiffPage& page, Raster& raster) {
  const bool rgb = page.converted || page.photometric == PHOTOMETRIC_RGB;
  raster.colours = raster.channels == 1          ? Raster::Colours::grey
                   : raster.channels == 3 && rgb ? Raster::Colours::rgb
                                                 : Raster::Colours::other;
}

// What is white at 0 counts from black.
void turnWhiteToBlack(const TiffPage& page, Raster& raster) {
  if (page.photometric != PHOTOMETRIC_MINISWHITE) return;
  if (page.samples.kind != SampleKind::unsignedInteger) return;
  const auto greatest = static_cast<float>(std::ldexp(1.0, page.samples.bits) - 1);
  for (float& value : raster.values) value = greatest - value;
}

}  // namespace

bool beginsTiff(std::string_view file) {
  using std::string_view_literals::operator""sv;
  return file.starts_with("II*\0"sv) || file.starts_with("MM\0*"sv) ||
         file.starts_with("II+\0"sv) || file.starts_with("MM\0+"sv);
}

TiffFile::TiffFile(std::string_view bytes) : file_(std::make_unique<MemoryTiff>(bytes)) {
  findPages();
}

TiffFile::~TiffFile() = default;

void TiffFile::findPages() {
  TIFF* const tiff = file_->get();
  std::size_t directory = 0, errors = 0;
  do {
    if (isPicture(tiff)) {
      pages_.push_back(describe(tiff));
      pages_.back().directory = directory;
    }
    if (++directory > kMostPages) throw FileError("has more than 100000 pages");
    errors = file_->errors().size();
  } while (TIFFReadDirectory(tiff) != 0);
  if (file_->errors().size() > errors) throw FileError("is a damaged TIFF" + file_->because());
  if (pages_.empty()) throw FileError("is a TIFF without a picture");
  refuseStackWithoutPages();
}

void TiffFile::refuseStackWithoutPages() const {
  const std::size_t said = picturesOfImageJ(pages_[0].description);
  if (pages_.size() == 1 && said > 1) {
    throw FileError("is a stack of " + std::to_string(said) +
                    " pictures that ImageJ wrote without pages, as it does beyond 4 GiB; save the "
                    "one that is wanted as a file of its own");
  }
}

void TiffFile::select(const TiffPage& page) const {
  if (TIFFSetDirectory(file_->get(), static_cast<tdir_t>(page.directory)) == 0) {
    throw FileError("is a damaged TIFF" + file_->because());
  }
}

Raster TiffFile::read(std::size_t number, const CheckRasterSize& check,
                      const Wanted& wanted) const {
  TiffPage page = pages_[number - 1];
  if (wanted.alphaIsChannel) {
    page.alphaSample = -1;
    page.channels = page.samplesPerPixel;
  }
  select(page);
  if (page.w == 0 || page.h == 0) throw FileError("is a TIFF without pixels");
  Raster raster;
  raster.w = page.w;
  raster.h = page.h;
  raster.samples = page.samples;
  raster.page = number;
  raster.pages = pages();
  raster.orientation = page.orientation;
  raster.hasAlpha = page.alphaSample >= 0;
  const bool colourOfPalette = page.palette && !wanted.paletteNumbers;
  raster.channels = page.converted || colourOfPalette ? 3 : page.channels;
  check(raster.w, raster.h, raster.channels + (wanted.alpha && raster.hasAlpha ? 1 : 0));
  if (page.converted) {
    readConvertedColours(*file_, raster);
  } else {
    readSamples(*file_, page, wanted.alpha, raster);
    if (colourOfPalette) takeColoursOfPalette(*file_, page, raster);
    turnWhiteToBlack(page, raster);
  }
  setColours(page, raster);
  if (colourOfPalette) raster.colours = Raster::Colours::rgb;
  raster.complaints = file_->warnings();
  raster.kept = keptTags(file_->get(), page.description);
  return raster;
}

KeptTags TiffFile::kept(std::size_t number) const {
  select(page(number));
  return keptTags(file_->get(), page(number).description);
}

}  // namespace namespace_ratseg
