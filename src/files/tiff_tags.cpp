#include "files/tiff_tags.h"

#include <cmath>
#include <cstring>
#include <iterator>
#include <sstream>

namespace namespace_ratseg {

namespace {

// GeoTIFF's tags, which libtiff does not know by itself.
char kScale[] = "ModelPixelScaleTag", kTiePoints[] = "ModelTiepointTag",
     kMatrix[] = "ModelTransformationTag", kKeys[] = "GeoKeyDirectoryTag",
     kDoubles[] = "GeoDoubleParamsTag", kTexts[] = "GeoAsciiParamsTag";
const TIFFFieldInfo kGeoTags[] = {
    {33550, -3, -3, TIFF_DOUBLE, FIELD_CUSTOM, 1, 1, kScale},
    {33922, -3, -3, TIFF_DOUBLE, FIELD_CUSTOM, 1, 1, kTiePoints},
    {34264, -3, -3, TIFF_DOUBLE, FIELD_CUSTOM, 1, 1, kMatrix},
    {34735, -3, -3, TIFF_SHORT, FIELD_CUSTOM, 1, 1, kKeys},
    {34736, -3, -3, TIFF_DOUBLE, FIELD_CUSTOM, 1, 1, kDoubles},
    {34737, -3, -3, TIFF_ASCII, FIELD_CUSTOM, 1, 0, kTexts},
};

// The lines of ImageJ's description that say how large a pixel is.
std::string unitsOfImageJ(const std::string& description) {
  if (!description.starts_with("ImageJ=")) return "";
  std::istringstream lines(description);
  std::string kept;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("unit=") || line.starts_with("spacing=")) kept += line + "\n";
  }
  return kept;
}

// A tag that was read without being known, and so comes with its number of elements.
bool takeTag(TIFF* tiff, const TIFFFieldInfo& info, KeptTags::Tag& tag) {
  const TIFFField* const field = TIFFFindField(tiff, info.field_tag, TIFF_ANY);
  if (field == nullptr || TIFFFieldPassCount(field) == 0) return false;
  if (TIFFFieldReadCount(field) != TIFF_VARIABLE2 || TIFFFieldDataType(field) != info.field_type) {
    return false;
  }
  std::uint32_t count = 0;
  const void* values = nullptr;
  if (TIFFGetField(tiff, info.field_tag, &count, &values) == 0 || values == nullptr) return false;
  const auto each = static_cast<std::size_t>(TIFFDataWidth(info.field_type));
  tag = {info.field_tag, info.field_type, count,
         std::string(static_cast<const char*>(values), count * each)};
  return count > 0;
}

}  // namespace

KeptTags keptTags(TIFF* tiff, const std::string& description) {
  KeptTags tags;
  TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &tags.xResolution);
  TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &tags.yResolution);
  std::uint16_t unit = RESUNIT_INCH;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_RESOLUTIONUNIT, &unit);
  tags.resolutionUnit = unit;
  tags.imageJ = unitsOfImageJ(description);
  for (const TIFFFieldInfo& info : kGeoTags) {
    KeptTags::Tag tag;
    if (takeTag(tiff, info, tag)) tags.geo.push_back(std::move(tag));
  }
  return tags;
}

void putTags(TIFF* tiff, const KeptTags& tags) {
  const auto isUsable = [](float value) { return value > 0 && std::isfinite(value); };
  if (isUsable(tags.xResolution) && isUsable(tags.yResolution)) {
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, static_cast<double>(tags.xResolution));
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, static_cast<double>(tags.yResolution));
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, tags.resolutionUnit);
  }
  if (!tags.imageJ.empty()) {
    TIFFSetField(tiff, TIFFTAG_IMAGEDESCRIPTION, ("ImageJ=1.53t\n" + tags.imageJ).c_str());
  }
  TIFFMergeFieldInfo(tiff, kGeoTags, static_cast<std::uint32_t>(std::size(kGeoTags)));
  for (const KeptTags::Tag& tag : tags.geo) {
    if (tag.type == TIFF_ASCII) {
      TIFFSetField(tiff, tag.number, std::string(tag.values.c_str()).c_str());
    } else {
      TIFFSetField(tiff, tag.number, tag.count, tag.values.data());
    }
  }
}

}  // namespace namespace_ratseg
