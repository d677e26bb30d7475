#ifndef RATSEG_MODELS_CHANNELS_H
#define RATSEG_MODELS_CHANNELS_H

#include <cstddef>
#include <vector>

namespace namespace_ratseg {

// What the numbers of a picture are.
enum class ChannelKind {
  grey,    // one channel
  colour,  // three: sRGB, 0 to 1
  other,   // any number of measurements
};

// A picture as it lies in memory, seen and not owned: channel c of pixel (x, y) is
// data[c][(y * w + x) * step]. So it may hold its channels side by side or one after the other.
struct Channels {
  std::size_t w = 0;
  std::size_t h = 0;
  std::size_t step = 1;
  std::vector<const float*> data;
  ChannelKind kind = ChannelKind::other;

  std::size_t pixels() const { return w * h; }
};

// The same picture, as grey where it is a colour one whose three channels are equal everywhere.
Channels greyWhereEqual(const Channels& picture);

}  // namespace namespace_ratseg

#endif
