#ifndef RATSEG_UTIL_PICTURES_PNG_READER_H
#define RATSEG_UTIL_PICTURES_PNG_READER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "util/pictures/wholeness.h"

namespace namespace_ratseg {

// The bytes that every PNG file begins with.
inline constexpr std::string_view kPngMark = "\x89PNG\r\n\x1a\n";

// The pixel format in the header of a PNG file.
struct PngHeader {
  static constexpr int kGrey = 0;
  static constexpr int kIndexed = 3;
  std::size_t w = 0;
  std::size_t h = 0;
  int bits = 0;  // of a sample
  int colourType = 0;
};

// False for what does not begin as a PNG file.
bool readPngHeader(std::string_view file, PngHeader& header);

struct PngRows {
  std::size_t rows = 0;     // that could be read; of an interlaced picture, in the last pass begun
  std::string error;        // of libpng; empty where all rows could be read
  bool cut = false;         // the file ends early
  bool ended = false;       // the end mark was found, and nothing was wrong up to it
  std::size_t colours = 0;  // of its palette; 0 where it has none
  bool endMark = false;     // the file ends with the mark, or within it
  std::vector<std::string> warnings;  // of libpng, each once
};

// Decodes a PNG file. takeRow(row, samples), unless it is empty, gets each row: its samples as they
// are stored, samples of fewer than 8 bits each in a byte of its own. Of an interlaced picture it
// gets all rows in each pass, those of the last pass complete.
PngRows readPngRows(std::string_view file,
                    const std::function<void(std::size_t, const std::uint8_t*)>& takeRow);

// The wholeness of a picture of h rows, from the rows that were read.
Wholeness wholenessOf(const PngRows& read, std::size_t h);

}  // namespace namespace_ratseg

#endif
