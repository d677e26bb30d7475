#ifndef RATSEG_APP_DATATERM_LABEL_PICTURE_H
#define RATSEG_APP_DATATERM_LABEL_PICTURE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "app/dataterm/page_choice.h"

namespace namespace_ratseg {

// A picture whose pixels are small numbers: marks or labels. Row-major, pixel (x, y) at y*w + x.
struct LabelPicture {
  std::size_t w = 0;
  std::size_t h = 0;
  std::vector<std::uint8_t> pixels;
  std::size_t declared = 0;  // numbers there are by another source than the pixels; 0: none

  // Functions called while a picture is loaded; each may be empty.
  struct Hooks {
    // Gets what is odd about the file, a line each that goes on after its name.
    std::function<void(const std::string&)> warn;
    // Gets width and height before the pixels are decoded, and throws where they are wrong.
    std::function<void(std::size_t, std::size_t)> checkSize;
  };

  // Reads a PNG: the grey value of an 8-bit grey one, the raw index (not the colour) of an indexed
  // one, even where the palette has no such colour. Or the numbers, of any type, of a TIFF or of a
  // 16-bit grey PNG; where a TIFF has several pages, of the page. Numbers are whole and at most
  // 255. Throws InputError for every other file.
  static LabelPicture load(const std::string& file, const Hooks& hooks = {{}, {}},
                           const PageChoice& page = {});

  // The same from the file's bytes.
  static LabelPicture decode(const std::string& bytes, const std::string& file, const Hooks& hooks,
                             const PageChoice& page = {});

  // The bytes of a file that may be one. Throws InputError.
  static std::string read(const std::string& file, const std::string& expected);

  // Counts the pixels of each number.
  std::array<std::size_t, 256> histogram() const;

  // The greatest number that occurs; 0 in a picture without pixels.
  std::size_t highest() const;
};

}  // namespace namespace_ratseg

#endif
