#ifndef RATSEG_FILES_TURN_H
#define RATSEG_FILES_TURN_H

#include <cstddef>

namespace namespace_ratseg {

// True where a picture of this orientation (EXIF, 1 to 8) is shown with width and height swapped.
inline bool swapsSides(int orientation) { return orientation >= 5 && orientation <= 8; }

// Copies a plane of w x h pixels as it is stored to the plane that is shown, of h x w pixels where
// swapsSides(). Orientations that there are not leave it as it is.
template <class T>
void turn(const T* stored, std::size_t w, std::size_t h, int orientation, T* shown) {
  const std::size_t shownW = swapsSides(orientation) ? h : w;
  for (std::size_t y = 0; y < h; ++y) {
    const std::size_t up = h - 1 - y;
    for (std::size_t x = 0; x < w; ++x) {
      const std::size_t back = w - 1 - x;
      std::size_t toX = x, toY = y;
      switch (orientation) {
        case 2:
          toX = back;
          break;
        case 3:
          toX = back, toY = up;
          break;
        case 4:
          toY = up;
          break;
        case 5:
          toX = y, toY = x;
          break;
        case 6:
          toX = up, toY = x;
          break;
        case 7:
          toX = up, toY = back;
          break;
        case 8:
          toX = y, toY = back;
          break;
        default:
          break;
      }
      shown[toY * shownW + toX] = stored[y * w + x];
    }
  }
}

}  // namespace namespace_ratseg

#endif
