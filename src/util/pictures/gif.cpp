#include <algorithm>
#include <array>
#include <cstdint>

#include "util/pictures/byte_reader.h"
#include "util/pictures/wholeness.h"

// A GIF file is a header, the size of the screen, perhaps a palette, and blocks up to a trailer. Of
// a picture, the pixels are LZW codes: each stands for a string of pixels. It takes the lengths of
// these strings alone to know how many pixels there are.

namespace namespace_ratseg {

namespace {

constexpr std::uint8_t kExtension = 0x21, kPicture = 0x2c, kTrailer = 0x3b;
constexpr unsigned kMaxBits = 12;

// The bits of a chain of blocks of up to 255 bytes, lowest bit first.
class BlockBits {
 public:
  BlockBits(const ByteReader& in, std::size_t at) : in_(in), at_(at) {}

  // False at the end of the blocks or of the file.
  bool read(unsigned bits, unsigned& code) {
    while (have_ < bits) {
      if (left_ == 0) {
        if (!in_.has(at_, 1)) return false;
        left_ = in_.byte(at_++);
        if (left_ == 0) {
          --at_;  // The end of the blocks stays where it is.
          return false;
        }
      }
      if (!in_.has(at_, 1)) return false;
      buffer_ |= static_cast<std::uint32_t>(in_.byte(at_++)) << have_;
      have_ += 8;
      --left_;
    }
    code = buffer_ & ((1u << bits) - 1);
    buffer_ >>= bits;
    have_ -= bits;
    return true;
  }

 private:
  const ByteReader& in_;
  std::size_t at_;
  std::size_t left_ = 0;
  std::uint32_t buffer_ = 0;
  unsigned have_ = 0;
};

struct Codes {
  std::uint64_t pixels = 0;  // that the codes before an end or a fault stand for
  std::size_t highest = 0;   // colour number
  bool damaged = false;      // a code that stands for nothing
  bool ended = false;        // by the end code
};

// Reads codes until they end, or stand for more than maxPixels pixels.
Codes readCodes(BlockBits bits, unsigned codeBits, std::uint64_t maxPixels) {
  std::array<std::uint32_t, 1u << kMaxBits> length{};
  const unsigned clear = 1u << codeBits;
  const unsigned end = clear + 1;
  std::fill_n(length.begin(), clear, 1u);
  unsigned next = end + 1;
  unsigned width = codeBits + 1;
  std::uint32_t last = 0;  // the length of the string before; 0 = none
  Codes found;
  for (unsigned code = 0; found.pixels <= maxPixels && bits.read(width, code);) {
    if (code == end) {
      found.ended = true;
      break;
    }
    if (code == clear) {
      next = end + 1;
      width = codeBits + 1;
      last = 0;
      continue;
    }
    // A code may stand for the string that it completes: the one before and its first pixel.
    const bool known = code < clear || (code > end && code < next);
    const bool completes = code == next && last != 0 && next < length.size();
    if (!known && !completes) {
      found.damaged = true;
      break;
    }
    if (code < clear) found.highest = std::max<std::size_t>(found.highest, code);
    if (last != 0 && next < length.size()) length[next++] = last + 1;
    if (next == 1u << width && width < kMaxBits) ++width;
    last = length[code];
    found.pixels += last;
  }
  return found;
}

class Walk {
 public:
  explicit Walk(std::string_view file)
      : in_(file), screenW_(in_.little16(6)), screenH_(in_.little16(8)) {}

  Wholeness walk() {
    skipPalette(10, 13);
    while (in_.has(at_, 1)) {
      const std::uint8_t block = in_.byte(at_++);
      if (block == kTrailer) break;
      if (block == kExtension) {
        ++at_;
        skipBlocks();
      } else if (block == kPicture) {
        checkPicture();
        if (!whole_.error.empty()) return whole_;
      } else if (block != 0) {  // An empty block does no harm.
        return havePicture_ ? noTrailer() : Wholeness{"is damaged: a block of no known kind", ""};
      }
    }
    if (!havePicture_) return {"ends early: no picture is in it", ""};
    return in_.has(at_, 0) && in_.byte(at_ - 1) == kTrailer ? whole_ : noTrailer();
  }

 private:
  Wholeness noTrailer() {
    if (whole_.warning.empty()) {
      whole_.warning = "has no end mark; its first picture is complete and is used";
    }
    return whole_;
  }

  void skipPalette(std::size_t flags, std::size_t behind) {
    const std::uint8_t bits = in_.byte(flags);
    colours_ = (bits & 0x80) != 0 ? std::size_t{2} << (bits & 7) : colours_;
    at_ = behind + ((bits & 0x80) != 0 ? 3 * colours_ : 0);
  }

  void skipBlocks() {
    while (in_.has(at_, 1) && in_.byte(at_) != 0) at_ += 1u + in_.byte(at_);
    ++at_;
  }

  // Only the first picture is ever shown; the others are just skipped.
  void checkPicture() {
    const std::uint64_t w = in_.little16(at_ + 4);
    const std::uint64_t h = in_.little16(at_ + 6);
    const bool atCorner = in_.little16(at_) == 0 && in_.little16(at_ + 2) == 0;
    const bool covers = atCorner && w == screenW_ && h == screenH_;
    skipPalette(at_ + 8, at_ + 9);
    const unsigned codeBits = in_.byte(at_++);
    if (!havePicture_) judge(w, h, codeBits);
    if (!havePicture_ && !covers && whole_.warning.empty()) {
      whole_.warning = "shows a picture of " + std::to_string(w) + " x " + std::to_string(h) +
                       " pixels, which is not what its screen of " + std::to_string(screenW_) +
                       " x " + std::to_string(screenH_) + " shows";
    }
    havePicture_ = true;
    skipBlocks();
  }

  void judge(std::uint64_t w, std::uint64_t h, unsigned codeBits) {
    if (!in_.has(at_, 1)) {
      whole_.error = endsEarly(0, h, "rows");
    } else if (codeBits < 1 || codeBits > 8) {
      whole_.error = "is damaged: pixels of " + std::to_string(codeBits) + " bits";
    } else {
      judge(readCodes(BlockBits(in_, at_), codeBits, w * h), w, h);
    }
  }

  void judge(const Codes& codes, std::uint64_t w, std::uint64_t h) {
    if (codes.pixels < w * h) {
      const std::uint64_t rows = codes.pixels / w;
      whole_.error = codes.damaged ? "is damaged in row " + std::to_string(rows) + " of " +
                                         std::to_string(h) + ": a code that stands for nothing"
                                   : endsEarly(rows, h, "rows");
    } else if (codes.pixels > w * h) {
      whole_.warning = "is damaged: it holds more pixels than its size, " + std::to_string(w) +
                       " x " + std::to_string(h) + ", needs";
    } else if (colours_ > 0 && codes.highest >= colours_) {
      whole_.warning = beyondPalette(codes.highest, colours_);
    }
  }

  ByteReader in_;
  std::uint64_t screenW_;
  std::uint64_t screenH_;
  std::size_t at_ = 0;
  std::size_t colours_ = 0;
  bool havePicture_ = false;
  Wholeness whole_;
};

}  // namespace

Wholeness checkGIF(std::string_view file) { return Walk(file).walk(); }

}  // namespace namespace_ratseg
