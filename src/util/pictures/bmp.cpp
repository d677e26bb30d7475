#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "device/ceil_div.h"
#include "util/pictures/byte_reader.h"
#include "util/pictures/png_reader.h"
#include "util/pictures/wholeness.h"

// The header of a BMP file is 14 bytes, of which the last four tell where the pixels begin. The
// header of the picture follows: its own length, width, height, ...; then masks or a palette. The
// pictures in ICO files have no header of the file, and a mask of 1 bit a pixel behind the pixels.

namespace namespace_ratseg {

namespace {

constexpr std::size_t kFileHeader = 14;
constexpr std::uint32_t kRLE8 = 1, kRLE4 = 2, kBitFields = 3, kAlphaBitFields = 6;

struct PictureHeader {
  std::size_t length = 0;
  std::uint64_t w = 0;
  std::uint64_t h = 0;
  unsigned bits = 0;
  std::uint32_t compression = 0;
  std::size_t colours = 0;  // of the palette
  std::size_t behind = 0;   // bytes of masks and palette
  bool hasProfile = false;  // a colour profile follows the pixels

  PictureHeader(const ByteReader& in, std::size_t at) : length(in.little32(at)) {
    const bool old = length == 12;
    w = old ? in.little16(at + 4) : in.little32(at + 4);
    // Rows from top to bottom have a negative height.
    h = old ? in.little16(at + 6) : sizeOf(in.little32(at + 8));
    bits = in.little16(at + (old ? 10 : 14));
    if (!old) compression = in.little32(at + 16);
    const std::size_t used = old ? 0 : in.little32(at + 32);
    if (bits <= 8) colours = used != 0 ? used : std::size_t{1} << bits;
    behind = colours * (old ? 3 : 4);
    if (length == 40 && compression == kBitFields) behind += 12;
    if (length == 40 && compression == kAlphaBitFields) behind += 16;
    hasProfile = length == 124 && (in.little32(at + 56) == 0x4d424544u ||  // 'MBED'
                                   in.little32(at + 56) == 0x4c494e4bu);   // 'LINK'
  }

  bool isRLE() const { return compression == kRLE8 || compression == kRLE4; }

  // Rows are filled up to four bytes.
  static std::uint64_t rowBytes(std::uint64_t pixels, unsigned bitsEach) {
    return ceilDiv(pixels * bitsEach, 32) * 4;
  }

 private:
  static std::uint64_t sizeOf(std::uint32_t number) {
    return static_cast<std::uint64_t>(std::llabs(static_cast<std::int32_t>(number)));
  }
};

// Goes through pixels in runs.
class RLEWalk {
 public:
  RLEWalk(const ByteReader& in, const PictureHeader& header, std::size_t at)
      : in_(in), header_(header), at_(at) {}

  Wholeness walk() {
    bool ended = false;
    while (!ended && in_.has(at_, 2)) ended = step(in_.byte(at_), in_.byte(at_ + 1));
    const std::uint64_t rows = std::min(header_.h, y_ + (x_ >= header_.w ? 1 : 0));
    if (!ended && rows < header_.h) return {endsEarly(rows, header_.h, "rows"), ""};
    if (!ended) return {"", "has no end mark"};
    if (strays_) return {"", "is damaged: pixels lie outside of its size"};
    if (highest_ >= header_.colours) return {"", beyondPalette(highest_, header_.colours)};
    if (longest_ < header_.w) {
      return {"", "has rows of at most " + std::to_string(longest_) + " pixels, but a width of " +
                      std::to_string(header_.w)};
    }
    if (std::min(header_.h, y_ + (x_ > 0 ? 1 : 0)) == header_.h) return {};
    return {"", "holds " + std::to_string(rows) + " of " + std::to_string(header_.h) +
                    " rows; the others are taken as empty"};
  }

 private:
  // One pair of bytes, and what belongs to it. True at the end mark.
  bool step(std::uint8_t count, std::uint8_t value) {
    at_ += 2;
    if (count > 0) {
      note(value, count);
      advance(count);
    } else if (value == 0) {
      x_ = 0;
      ++y_;
    } else if (value == 1) {
      return true;
    } else if (value == 2) {
      x_ += in_.byte(at_);
      y_ += in_.byte(at_ + 1);
      at_ += 2;
    } else {
      single(value);
    }
    return false;
  }

  // That many pixels follow, each with its own value.
  void single(std::size_t count) {
    const std::size_t bytes = header_.compression == kRLE8 ? count : (count + 1) / 2;
    const std::size_t there = std::min(bytes, in_.size() - std::min(in_.size(), at_));
    for (std::size_t k = 0; k < there; ++k) note(in_.byte(at_ + k), 2 * k + 1 < count ? 2 : 1);
    at_ += (bytes + 1) / 2 * 2;
    if (there == bytes) advance(count);
  }

  void note(std::size_t value, std::size_t count) {
    if (header_.compression == kRLE8) {
      highest_ = std::max(highest_, value);
    } else {
      highest_ = std::max(highest_, value >> 4);
      if (count > 1) highest_ = std::max(highest_, value & 15);
    }
  }

  void advance(std::size_t count) {
    x_ += count;
    longest_ = std::max(longest_, x_);
    strays_ = strays_ || x_ > header_.w || y_ >= header_.h;
  }

  const ByteReader& in_;
  const PictureHeader& header_;
  std::size_t at_;
  std::uint64_t x_ = 0;
  std::uint64_t y_ = 0;
  std::uint64_t longest_ = 0;  // of all rows
  std::size_t highest_ = 0;
  bool strays_ = false;
};

// The greatest colour number of rows of 4- or 8-bit pixels.
std::size_t highestNumber(const ByteReader& in, const PictureHeader& header, std::size_t at) {
  std::size_t highest = 0;
  const std::uint64_t row = PictureHeader::rowBytes(header.w, header.bits);
  for (std::uint64_t y = 0; y < header.h; ++y) {
    for (std::uint64_t x = 0; x < header.w; ++x) {
      const std::uint8_t byte = in.byte(at + y * row + x * header.bits / 8);
      const unsigned number = header.bits == 8 ? byte : x % 2 == 0 ? byte >> 4 : byte & 15;
      highest = std::max<std::size_t>(highest, number);
    }
  }
  return highest;
}

Wholeness checkRows(const ByteReader& in, const PictureHeader& header, std::size_t at) {
  const std::uint64_t row = PictureHeader::rowBytes(header.w, header.bits);
  const std::size_t there = in.size() - std::min(in.size(), at);
  if (row == 0 || there / row < header.h) {
    return {endsEarly(row == 0 ? 0 : there / row, header.h, "rows"), ""};
  }
  const bool checksNumbers = header.bits == 4 || header.bits == 8;
  if (checksNumbers && header.colours < std::size_t{1} << header.bits) {
    const std::size_t highest = highestNumber(in, header, at);
    if (highest >= header.colours) return {"", beyondPalette(highest, header.colours)};
  }
  const std::uint64_t more = there - row * header.h;
  if (more < row || header.hasProfile) return {};
  return {"", "holds " + std::to_string(more) + " bytes more than its size needs"};
}

constexpr char kHeaderCut[] = "ends early: its header is not complete";

}  // namespace

Wholeness checkBMP(std::string_view file) {
  const ByteReader in(file);
  if (!in.has(kFileHeader, 4)) return {kHeaderCut, ""};
  const PictureHeader header(in, kFileHeader);
  const std::size_t front = kFileHeader + header.length + header.behind;
  if (!in.has(front, 0)) return {endsEarly(in.size(), front, "bytes of its header"), ""};
  const std::size_t pixels = std::max<std::size_t>(front, in.little32(10));
  return header.isRLE() ? RLEWalk(in, header, pixels).walk() : checkRows(in, header, pixels);
}

Wholeness checkICO(std::string_view file) {
  const ByteReader in(file);
  constexpr std::size_t kDirectory = 6, kEntry = 16;
  const std::size_t count = in.little16(4);
  const std::size_t front = kDirectory + count * kEntry;
  if (!in.has(front, 0)) return {endsEarly(in.size(), front, "bytes of its header"), ""};
  std::size_t cut = 0;
  for (std::size_t k = 0; k < count; ++k) {
    const std::size_t entry = kDirectory + k * kEntry;
    if (!in.has(in.little32(entry + 12), in.little32(entry + 8))) ++cut;
  }
  const std::size_t at = in.little32(kDirectory + 12);
  if (!in.has(at, in.little32(kDirectory + 8))) {
    return {endsEarly(in.size(), at + in.little32(kDirectory + 8), "bytes"), ""};
  }
  Wholeness whole;
  if (file.substr(at).starts_with(kPngMark)) {
    whole = checkPNG(file.substr(at));
  } else {
    const PictureHeader header(in, at);
    const std::uint64_t rows = header.h / 2;  // The height counts the mask's rows too.
    const std::uint64_t row =
        PictureHeader::rowBytes(header.w, header.bits) + PictureHeader::rowBytes(header.w, 1);
    const std::uint64_t end = at + header.length + header.behind + row * rows;
    if (!in.has(end, 0)) whole.error = endsEarly(in.size(), end, "bytes");
  }
  if (whole.warning.empty() && cut > 0) {
    whole.warning = "ends early: " + std::to_string(cut) + " of " + std::to_string(count) +
                    " pictures in it are not complete; the first one is, and is used";
  }
  return whole;
}

}  // namespace namespace_ratseg
