#ifndef RATSEG_UTIL_PICTURES_PICTURE_H
#define RATSEG_UTIL_PICTURES_PICTURE_H

#include <cstdint>
#include <string>

#include "util/pictures/wholeness.h"

class QImage;
class QImageReader;

namespace namespace_ratseg {

// The bytes of a picture file of any format that Qt reads, and what can be asked of them. Nothing
// is decoded before decode() is called.
class Picture {
 public:
  // The format is found out from the bytes; only TGA files, which have no mark to be known by, need
  // a name that ends in ".tga".
  Picture(std::string bytes, const std::string& name);

  // True if files that begin with these bytes may be of a format that Qt reads.
  static bool formatIsKnown(const std::string& begin, const std::string& name);

  bool formatIsKnown() const { return known_; }

  // The size from the header; 0 x 0 where the header does not tell.
  std::uint64_t w() const { return w_; }
  std::uint64_t h() const { return h_; }

  // True if it asks to be shown turned or mirrored, as photographs do. decode() gives the pixels as
  // they are stored.
  bool asksToBeTurned() const { return orientation_ != 1; }
  int orientation() const { return orientation_; }  // as in EXIF, 1 to 8

  // True if it has 16 bits per channel.
  bool has16Bits() const { return deep_; }

  // Says if pixels are missing.
  Wholeness wholeness() const;

  // Decodes it, whole or not, into an image of at most that many bytes, 0 = any number. Where that
  // fails, the image is null and error has Qt's words for the reason.
  QImage decode(std::uint64_t maxBytes, std::string& error) const;

 private:
  void ask(QImageReader& reader);

  std::string bytes_;
  bool isTGA_ = false;
  bool known_ = false;
  std::uint64_t w_ = 0;
  std::uint64_t h_ = 0;
  int orientation_ = 1;
  bool deep_ = false;
};

}  // namespace namespace_ratseg

#endif
