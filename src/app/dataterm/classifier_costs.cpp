#include "app/dataterm/classifier_costs.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "app/dataterm/input_error.h"
#include "app/messages.h"
#include "files/axes.h"
#include "files/file_error.h"
#include "files/hdf5.h"
#include "files/npy.h"
#include "files/probabilities.h"
#include "files/tiff_reader.h"
#include "util/available_memory.h"
#include "util/whole_file.h"

namespace namespace_ratseg {

namespace {

constexpr char kExpected[] = "values of each label and pixel (.npy, TIFF, or HDF5 of ilastik)";

bool isKnown(const std::string& begin) {
  return beginsNpy(begin) || beginsTiff(begin) || beginsHdf5(begin);
}

std::string readBytes(const std::string& file, double mostBytes) {
  constexpr double kMost = 1e15;
  const auto limit = static_cast<std::size_t>(std::min(mostBytes, kMost));
  WholeFile read = readWholeFile(file, limit, isKnown);
  if (!read.error.empty()) throw InputError::unopened(file, kExpected, read.error);
  if (read.tooLong) {
    throw InputError(file, kExpected,
                     "a file of more than " + memoryText(mostBytes) +
                         " (-max-memory GIB allows "
                         "others)");
  }
  if (!isKnown(read.bytes)) {
    throw InputError(file, kExpected, "a file that is none of these");
  }
  return std::move(read.bytes);
}

CheckElements checkerOf(double mostBytes) {
  return [mostBytes](std::size_t count) {
    constexpr double kEach = 2 * sizeof(float);  // in the file's order, and in planes
    const double needed = kEach * static_cast<double>(count);
    if (needed <= mostBytes) return;
    throw FileError("needs about " + memoryText(needed) + " of memory, but " +
                    memoryText(mostBytes) + " are there (-max-memory GIB allows others)");
  };
}

// The channels of one page, or the pages of one channel, as labels.
Array arrayOfTiff(const std::string& bytes, const CheckElements& check) {
  const TiffFile tiff(bytes);
  const TiffPage& first = tiff.page(1);
  const std::size_t pages = tiff.pages();
  Array array;
  array.samples = first.samples;
  array.axes = "nyx";
  const CheckRasterSize checkPage = [&](std::size_t w, std::size_t h, std::size_t channels) {
    if (w != first.w || h != first.h || (pages > 1 && channels > 1)) {
      throw FileError(
          "has pages that differ in size or have several channels; a page for each label, or a "
          "channel for each on one page, is wanted");
    }
    check(elementCount({pages, channels, w, h}));
  };
  TiffFile::Wanted wanted;
  wanted.paletteNumbers = true;
  wanted.alphaIsChannel = true;
  std::size_t channels = 0;
  for (std::size_t page = 1; page <= pages; ++page) {
    if (tiff.page(page).samples != first.samples) {
      throw FileError("has pages of different types of numbers");
    }
    const Raster raster = tiff.read(page, checkPage, wanted);
    channels = raster.channels;
    array.values.insert(array.values.end(), raster.values.begin(), raster.values.end());
  }
  array.shape = {pages > 1 ? pages : channels, first.h, first.w};
  return array;
}

Array readArray(const std::string& bytes, const CheckElements& check) {
  if (beginsNpy(bytes)) return readNpy(bytes, check);
  return beginsTiff(bytes) ? arrayOfTiff(bytes, check) : readHdf5(bytes, check);
}

// Checks the values and turns them into costs.
void makeCosts(const DatatermOptions& options, std::size_t w, const SampleType& samples,
               ClassifierCosts& costs) {
  if (!options.files.probabilities.empty()) {
    scaleToOne(costs.values, samples);
    checkProbabilities(costs.values, costs.labels, w, samples);
    probabilitiesToCosts(costs.values, options.thr);
    return;
  }
  checkCosts(costs.values, costs.labels, w);
  if (lookLikeProbabilities(costs.values, costs.labels)) {
    warn(options.files.costs +
         " has costs that are from 0 to 1 and sum to 1 at each pixel, as probabilities do: if they "
         "are, -probabilities takes them (as costs they prefer what is least probable)");
  }
}

}  // namespace

ClassifierCosts loadClassifierCosts(const DatatermOptions& options, std::size_t w, std::size_t h) {
  const std::string& file = options.files.costsFile();
  const double mostBytes = options.limits.bytes();
  try {
    ClassifierCosts costs;
    SampleType samples;
    {
      const std::string bytes = readBytes(file, mostBytes);
      const Array array = readArray(bytes, checkerOf(mostBytes));
      const Planes planes = planesOf(array, options.files.axes, w, h);
      samples = array.samples;
      costs.labels = planes.labels;
      costs.values = inPlanes(array, planes, w, h);
    }
    makeCosts(options, w, samples, costs);
    constexpr float kForbidden = std::numeric_limits<float>::max();
    for (float value : costs.values) {
      if (value < kForbidden) costs.greatest = std::max(costs.greatest, value);
    }
    return costs;
  } catch (const FileError& e) {
    throw InputError(file, kExpected, "a file that " + std::string(e.what()));
  }
}

}  // namespace namespace_ratseg
