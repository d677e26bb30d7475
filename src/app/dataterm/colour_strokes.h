#ifndef RATSEG_APP_DATATERM_COLOUR_STROKES_H
#define RATSEG_APP_DATATERM_COLOUR_STROKES_H

// Strokes drawn in colours: which pixels have a colour of their own, and which only lie on the
// smoothed rims of strokes.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "files/raster.h"

namespace namespace_ratseg {

using ColourNumber = std::uint32_t;  // 0xrrggbb

// "ff0000"
std::string colourText(ColourNumber colour);

// Reads "ff0000=0,00ff00=1": a label for each colour; a colour may not stand twice, two colours may
// mark the same label. False where it is none of these.
bool parseColours(const std::string& text, std::map<ColourNumber, std::size_t>& labels);

struct ColourStrokes {
  std::vector<ColourNumber> pixels;            // of each pixel, 8 bits per channel
  std::vector<bool> marked;                    // by its own colour: neither unmarked nor on a rim
  std::map<ColourNumber, std::size_t> counts;  // pixels marked in each pure colour
  std::size_t left = 0;                        // out: pixels on rims
  bool transparent = false;                    // what is transparent is unmarked, not one colour
  ColourNumber unmarked = 0;                   // that colour

  // The pure colours in the order of their hue: from red over yellow, green and blue to magenta,
  // then grey ones from black to white.
  std::vector<ColourNumber> byHue() const;
};

// Finds the strokes of a picture of one or three channels of 8 or 16 bits. Unmarked is what is
// transparent (and half transparent pixels are rims, unless all strokes are); of a picture without
// transparency, its most frequent colour. Rims are colours between two of the others that lie
// beside one of them. At most so many colours are told apart: of pictures with more, what() of a
// FileError says how many there are.
ColourStrokes findStrokes(const Raster& picture);

// The number of different colours at which a picture is taken for a photograph.
inline constexpr std::size_t kManyColours = 4096;

}  // namespace namespace_ratseg

#endif
