#ifndef RATSEG_FILES_TIFF_READER_H
#define RATSEG_FILES_TIFF_READER_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "files/raster.h"

namespace namespace_ratseg {

class MemoryTiff;

// True of the first bytes of a TIFF file, of a BigTIFF one too.
bool beginsTiff(std::string_view file);

// One picture of a TIFF file, as its directory describes it.
struct TiffPage {
  std::size_t w = 0, h = 0;
  std::size_t samplesPerPixel = 1;  // transparency included
  std::size_t channels = 1;         // transparency left out
  int alphaSample = -1;             // which sample is the transparency
  SampleType samples;
  int photometric = 1;
  bool palette = false;
  bool separate = false;  // a plane for each sample
  bool tiled = false;
  bool converted = false;  // colours that libtiff turns into red, green and blue of 8 bits
  int orientation = 1;
  int compression = 1;
  std::string description;
  std::size_t directory = 0;  // where it stands in the file
};

// A TIFF file in memory: 1 to 32 and 64 bit integers and floats of 16, 32 and 64 bits, in strips or
// tiles, with samples together or apart, in either order of bytes, with every compression that
// libtiff knows. Errors are thrown as FileError.
//
// Pages are counted from 1. Smaller copies of a page (pyramids, thumbnails) and masks are no pages.
class TiffFile {
 public:
  // The bytes outlive it.
  explicit TiffFile(std::string_view bytes);
  ~TiffFile();

  std::size_t pages() const { return pages_.size(); }
  const TiffPage& page(std::size_t number) const { return pages_[number - 1]; }

  // What becomes of a page's samples.
  struct Wanted {
    bool paletteNumbers = false;  // the numbers of colours instead of the colours
    bool alpha = false;           // Raster::alpha
    bool alphaIsChannel = false;  // as any other sample
  };
  Raster read(std::size_t number, const CheckRasterSize& check, const Wanted& wanted) const;
  Raster read(std::size_t number, const CheckRasterSize& check) const {
    return read(number, check, Wanted{});
  }

  // What another file keeps of a page.
  KeptTags kept(std::size_t number) const;

 private:
  void select(const TiffPage& page) const;
  void findPages();
  void refuseStackWithoutPages() const;

  std::unique_ptr<MemoryTiff> file_;
  std::vector<TiffPage> pages_;
};

}  // namespace namespace_ratseg

#endif
