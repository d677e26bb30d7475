#ifndef RATSEG_UTIL_PICTURES_WHOLENESS_H
#define RATSEG_UTIL_PICTURES_WHOLENESS_H

// Checks that a picture file holds all pixels that its header announces. Most decoders fill what is
// missing with grey, black or nothing, and report little or nothing of it.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace namespace_ratseg {

// Both texts go on after the file's name: "ends early: 12 of 30 rows are there".
struct Wholeness {
  std::string error;    // pixels are missing or damaged; empty where none are known to be
  std::string warning;  // all pixels that are shown are there, but something else is not as it
                        // should be
  std::vector<std::string> complaints = {};  // of the library that read it
};

// Of a file of any format; of one that is not known here, nothing is said.
Wholeness checkWholeness(std::string_view file);

// Of a file whose format is known.
Wholeness checkBMP(std::string_view file);
Wholeness checkGIF(std::string_view file);
Wholeness checkICO(std::string_view file);  // cursors too; the first picture in it counts
Wholeness checkJPEG(std::string_view file);
Wholeness checkPNG(std::string_view file);
Wholeness checkPNM(std::string_view file);  // PBM, PGM and PPM, as text and binary
Wholeness checkTGA(std::string_view file);  // has no mark to be known by
Wholeness checkXBM(std::string_view file);

// "ends early: 12 of 30 rows are there"
std::string endsEarly(std::size_t found, std::size_t expected, const char* unit);

// "has colour numbers up to 6, but a palette of 5 colours"
std::string beyondPalette(std::size_t highest, std::size_t colours);

}  // namespace namespace_ratseg

#endif
