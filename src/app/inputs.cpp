#include "app/inputs.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <limits>
#include <new>
#include <sstream>
#include <system_error>

#include "app/messages.h"
#include "util/fileio.h"
#include "util/imagetransforms.h"

namespace namespace_ratseg {

namespace {

std::string problemSize(const Image& image, std::size_t n) {
  return sizeText(static_cast<std::size_t>(image.w), static_cast<std::size_t>(image.h), n);
}

std::unique_ptr<float[]> allocateDataterm(const Image& image, std::size_t n) {
  try {
    if (n > std::numeric_limits<std::size_t>::max() / sizeof(float) / image.count()) {
      throw std::bad_alloc();
    }
    return std::make_unique_for_overwrite<float[]>(image.count() * n);
  } catch (const std::bad_alloc&) {
    fail("ERROR: no memory for the data term of " + problemSize(image, n));
  }
}

void failOnNaN(const std::string& file, const float* dataterm, const Image& image, std::size_t n) {
  const float* end = dataterm + image.count() * n;
  const float* found = std::find_if(dataterm, end, [](float x) { return std::isnan(x); });
  if (found == end) return;
  const auto index = static_cast<std::size_t>(found - dataterm);
  const std::size_t pixel = index % image.count();
  const auto w = static_cast<std::size_t>(image.w);
  std::ostringstream message;
  message << "ERROR: dataterm " << file << " holds NaN at label " << index / image.count()
          << ", pixel (" << pixel % w << ", " << pixel / w << ")";
  fail(message.str());
}

// Integers that are read as floats are such small numbers, zeros and large ones apart.
void warnOfTinyCosts(const std::string& file, const float* dataterm, std::size_t count) {
  constexpr float kTiny = 1e-30f;
  bool any = false;
  for (std::size_t k = 0; k < count; ++k) {
    if (std::abs(dataterm[k]) >= kTiny) return;
    any = any || dataterm[k] != 0.0f;
  }
  if (any) {
    warn(inQuotes(file) +
         " holds no cost of 1e-30 or more: integers instead of floats are the usual reason");
  }
}

// Bytes of a packed array of that many numbers of that many bytes each.
std::size_t packedBytes(std::size_t count, std::size_t size) {
  return sizeof(std::uint64_t) + count * size;
}

// Names the fault of a data term that could not be loaded, as far as zlib tells; empty where it is
// a packed array, but of another size.
std::string faultOfDataterm(const std::string& file, std::size_t pixels, std::size_t n) {
  const std::size_t count = pixels * n;
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(file, ignored)) return "";  // A pipe is read once.
  const std::size_t expected = packedBytes(count, sizeof(float));
  const FileIO::GZContents found = FileIO::inspectGZ(file, expected + 1);
  if (!found.opened) return " cannot be opened";
  if (!found.error.empty()) return " is damaged: " + found.error;
  const bool asExpected = found.count == count || found.bytes < sizeof found.count;
  if (!found.packed && found.bytes > 0 && !asExpected) return " is not a gzip file";
  if (!found.cut && found.bytes == count * sizeof(float)) {
    return " does not begin with the number of elements (8 bytes)";
  }
  if (found.cut && found.bytes == expected) return " ends early: its checksum is missing";
  if (found.bytes < expected && (found.cut || asExpected)) {
    return " ends early: found " + std::to_string(found.bytes) + " of " + std::to_string(expected) +
           " bytes";
  }
  if (found.count > 0 && found.count % pixels == 0) {
    return " holds " + std::to_string(found.count / pixels) + " labels for " +
           std::to_string(pixels) + " pixels";
  }
  return "";
}

void warnOfDataterm(const std::string& file, const Image& image, std::size_t n) {
  if (warnIfUnreadable(file)) return;
  const std::string fault = faultOfDataterm(file, image.count(), n);
  warn((fault.empty() ? "" : inQuotes(file) + fault + "; ") +
       "the data term must be a packed array of floats for " + problemSize(image, n) +
       ", the background label included (one label more than the proportions file has)");
}

// Ends the process where the file holds numbers of twice the size.
void checkMoreBytes(const std::string& file, std::size_t count) {
  const std::size_t twice = packedBytes(count, sizeof(double));
  std::error_code ignored;
  const bool isTwice = std::filesystem::is_regular_file(file, ignored) &&
                       FileIO::inspectGZ(file, twice + 1).bytes == twice;
  if (isTwice) {
    warn(inQuotes(file) + " holds 8 bytes for each of its " + std::to_string(count) +
         " numbers, as float64 has; the data term must be a packed array of floats of 4 bytes");
    fail("ERROR loading dataterm " + file);
  }
  warn(inQuotes(file) + " holds more bytes than its " + std::to_string(count) +
       " floats of 4 bytes; the rest is ignored");
}

void warnOfAutomaticGamma(float gamma) {
  if (std::isfinite(gamma)) {
    warn("-weightcoeff is negative; " + (std::ostringstream() << gamma).str() +
         " is computed from the image");
  } else {
    warn("-weightcoeff is negative, but the image has a single colour: no weight can be computed");
  }
}

}  // namespace

Image loadImage(const std::string& file, const PictureLimits& limits) {
  const auto failLoading = [&file] { fail("ERROR loading image to segment: " + file); };
  if (warnIfUnreadable(file)) failLoading();
  Image image;
  try {
    image = loadPicture(file, limits, warnerOf(inQuotes(file)));
  } catch (const PictureError& e) {
    const bool unreadable = e.kind == PictureError::Kind::unreadable;
    warn(inQuotes(file) + (unreadable ? ": " : " ") + e.what());
    failLoading();
  }
  std::cout << "Image to segment: " << file << " (" << image.w << " x " << image.h << ")"
            << std::endl;
  return image;
}

std::unique_ptr<float[]> loadDataterm(const std::string& file, const Image& image, std::size_t n) {
  std::unique_ptr<float[]> dataterm = allocateDataterm(image, n);
  const std::size_t count = image.count() * n;
  bool more = false;
  if (!FileIO::loadArray<float>(file, dataterm.get(), count, &more)) {
    warnOfDataterm(file, image, n);
    fail("ERROR loading dataterm " + file);
  }
  if (more) checkMoreBytes(file, count);
  std::cout << "Dataterm: " << file << std::endl;
  failOnNaN(file, dataterm.get(), image, n);
  warnOfTinyCosts(file, dataterm.get(), count);
  return dataterm;
}

std::unique_ptr<float[]> edgeWeight(const Image& image, float gamma) {
  if (gamma == 0) {
    auto ones = std::make_unique_for_overwrite<float[]>(image.count());
    std::fill_n(ones.get(), image.count(), 1.0f);
    return ones;
  }
  const bool automatic = !(gamma > 0);
  std::unique_ptr<float[]> weight(
      ImageTransforms::computeWeight(image.pixels.get(), image.w, image.h, 1.0f, &gamma));
  if (automatic) warnOfAutomaticGamma(gamma);
  return weight;
}

}  // namespace namespace_ratseg
