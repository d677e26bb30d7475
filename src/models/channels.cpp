#include "models/channels.h"

namespace namespace_ratseg {

Channels greyWhereEqual(const Channels& picture) {
  if (picture.kind != ChannelKind::colour) return picture;
  for (std::size_t p = 0; p < picture.pixels() * picture.step; p += picture.step) {
    const float value = picture.data[0][p];
    if (picture.data[1][p] != value || picture.data[2][p] != value) return picture;
  }
  Channels grey = picture;
  grey.kind = ChannelKind::grey;
  grey.data.resize(1);
  return grey;
}

}  // namespace namespace_ratseg
