#ifndef RATSEG_TESTS_SUPPORT_RAW_PICTURES_H
#define RATSEG_TESTS_SUPPORT_RAW_PICTURES_H

// Picture files byte by byte, of kinds that Qt does not write.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace raw_pictures {

// Numbers as bytes, the lowest first.
inline std::string little(std::uint64_t number, int bytes) {
  std::string text;
  for (int k = 0; k < bytes; ++k) text += static_cast<char>(number >> 8 * k & 255);
  return text;
}
inline std::string little16(std::uint64_t number) { return little(number, 2); }
inline std::string little32(std::uint64_t number) { return little(number, 4); }

// A small picture of six colours, or of the first two of them.
struct Example {
  int w = 24;
  int h = 17;
  unsigned colours = 6;

  unsigned number(int x, int y) const {
    const unsigned noise = static_cast<unsigned>(x * 7919 + y * 104729) >> 3;
    return static_cast<unsigned>(x / 5 + y / 4 + (noise % 11 == 0 ? 1 : 0)) % colours;
  }
  // Blue, green, red.
  static std::string colour(unsigned number) {
    static const std::vector<std::string> all = {{"\x00\x00\x00", 3}, {"\xff\xff\xff", 3},
                                                 {"\x10\x20\xf0", 3}, {"\x20\xe0\x30", 3},
                                                 {"\xd0\x10\x40", 3}, {"\x50\x90\xa0", 3}};
    return number < all.size() ? all[number] : std::string("\x80\x80\x80", 3);
  }
};

// --- BMP

struct BMP {
  Example picture = {};
  int bits = 24;
  int headerLength = 40;
  bool topDown = false;
  bool runs = false;            // RLE, of 4 or 8 bits
  bool masks = false;           // of 16 or 32 bits
  unsigned paletteColours = 0;  // 0: all that bits can name
  int gap = 0;                  // bytes between header and pixels

  std::string bytes() const {
    const std::string front = header() + palette() + std::string(static_cast<std::size_t>(gap), 0);
    const std::string body = runs ? runsOfRows() : rows();
    const std::size_t at = 14 + front.size();
    return std::string("BM") + little32(at + body.size()) + little32(0) + little32(at) + front +
           body;
  }

  // As it is in an ICO file: no header of the file, and a mask of zeros behind the pixels.
  std::string inIcon() const {
    BMP twice = *this;
    twice.picture.h *= 2;
    const std::string head = twice.header() + palette();
    return head + rows() +
           std::string(static_cast<std::size_t>((picture.w + 31) / 32 * 4 * picture.h), 0);
  }

  std::string header() const {
    const auto w = static_cast<std::uint32_t>(picture.w);
    const auto h = static_cast<std::uint32_t>(topDown ? -picture.h : picture.h);
    if (headerLength == 12) {
      return little32(12) + little16(w) + little16(h) + little16(1) +
             little16(static_cast<unsigned>(bits));
    }
    const unsigned compression = runs ? (bits == 8 ? 1 : 2) : masks ? 3 : 0;
    std::string head = little32(static_cast<unsigned>(headerLength)) + little32(w) + little32(h) +
                       little16(1) + little16(static_cast<unsigned>(bits)) + little32(compression) +
                       little32(0) + little32(2835) + little32(2835) +
                       little32(bits <= 8 ? paletteColours : 0) + little32(0);
    const std::string maskBytes = bits == 16
                                      ? little32(0xf800) + little32(0x07e0) + little32(0x001f)
                                      : little32(0xff0000) + little32(0xff00) + little32(0xff);
    if (masks) head += maskBytes;
    if (headerLength > 40 && !masks) head += std::string(12, 0);
    const std::size_t length = static_cast<std::size_t>(headerLength);
    if (head.size() < length) head += std::string(length - head.size(), 0);
    return head;
  }

  std::string palette() const {
    if (bits > 8) return "";
    std::string all;
    const unsigned count = paletteColours > 0 ? paletteColours : 1u << bits;
    for (unsigned k = 0; k < count; ++k) {
      all += Example::colour(k);
      if (headerLength != 12) all += '\0';
    }
    return all;
  }

  std::string row(int y) const {
    std::string packed;
    unsigned byte = 0;
    for (int x = 0; x < picture.w; ++x) {
      const unsigned number = picture.number(x, y);
      const std::string c = Example::colour(number);
      if (bits == 16) packed += little16(sixteen(c));
      if (bits == 24) packed += c;
      if (bits == 32) packed += c + '\0';
      if (bits > 8) continue;
      byte = byte << bits | number;
      if ((x + 1) * bits % 8 == 0 || x + 1 == picture.w) {
        const int missing = (8 - (x + 1) * bits % 8) % 8;
        packed += static_cast<char>(byte << missing & 255);
        byte = 0;
      }
    }
    return packed + std::string((4 - packed.size() % 4) % 4, 0);
  }

 private:
  // 5 bits of each colour, or with masks 5, 6 and 5.
  unsigned sixteen(const std::string& c) const {
    const auto part = [&c](int k, int to) { return static_cast<unsigned char>(c[k]) * to / 255u; };
    return masks ? part(0, 31) | part(1, 63) << 5 | part(2, 31) << 11
                 : part(0, 31) | part(1, 31) << 5 | part(2, 31) << 10;
  }

  std::string rows() const {
    std::string all;
    for (int k = 0; k < picture.h; ++k) all += row(topDown ? k : picture.h - 1 - k);
    return all;
  }

  // Runs of equal pixels; the first three pixels of each row one by one.
  std::string runsOfRows() const {
    std::string all;
    for (int y = picture.h - 1; y >= 0; --y) {
      const auto at = [&](int x) { return picture.number(x, y); };
      all += std::string("\0\3", 2);
      if (bits == 8) {
        for (int x = 0; x < 3; ++x) all += static_cast<char>(at(x));
        all += '\0';
      } else {
        all += static_cast<char>(at(0) << 4 | at(1));
        all += static_cast<char>(at(2) << 4);
      }
      for (int x = 3; x < picture.w;) {
        int run = 1;
        while (x + run < picture.w && at(x + run) == at(x)) ++run;
        all += static_cast<char>(run);
        all += static_cast<char>(bits == 8 ? at(x) : at(x) << 4 | at(x));
        x += run;
      }
      all += std::string("\0\0", 2);
    }
    return all + std::string("\0\1", 2);
  }
};

// --- ICO

// Pictures in one file; each is a PNG file or what BMP::inIcon gives, of the size of an Example.
inline std::string ico(const std::vector<std::string>& pictures, int bits = 24) {
  const Example size;
  std::string head = little16(0) + little16(1) + little16(pictures.size());
  std::string body;
  for (const std::string& picture : pictures) {
    head += little(static_cast<unsigned>(size.w), 1) + little(static_cast<unsigned>(size.h), 1) +
            little16(0) + little16(1) + little16(static_cast<unsigned>(bits)) +
            little32(picture.size()) + little32(6 + 16 * pictures.size() + body.size());
    body += picture;
  }
  return head + body;
}

// --- GIF

// The codes of a GIF picture, in its blocks.
class GifCodes {
 public:
  explicit GifCodes(unsigned codeBits) : codeBits_(codeBits) { clear(); }

  std::string blocks(const std::vector<unsigned>& pixels, bool endCode = true) {
    put(1u << codeBits_);
    std::string text;
    for (const unsigned pixel : pixels) {
      const std::string longer = text + static_cast<char>(pixel);
      if (table_.contains(longer)) {
        text = longer;
        continue;
      }
      put(table_[text]);
      add(longer);
      text = std::string(1, static_cast<char>(pixel));
    }
    put(table_[text]);
    if (next_ < 4096 && next_ == 1u << width_ && width_ < 12) ++width_;
    if (endCode) put((1u << codeBits_) + 1);
    if (have_ > 0) bytes_ += static_cast<char>(buffer_);
    std::string blocks;
    for (std::size_t at = 0; at < bytes_.size(); at += 255) {
      const std::string block = bytes_.substr(at, 255);
      blocks += static_cast<char>(block.size()) + block;
    }
    return blocks + '\0';
  }

 private:
  void clear() {
    table_.clear();
    for (unsigned k = 0; k < 1u << codeBits_; ++k) table_[std::string(1, static_cast<char>(k))] = k;
    next_ = (1u << codeBits_) + 2;
    width_ = codeBits_ + 1;
  }
  void add(const std::string& text) {
    if (next_ == 4096) {
      put(1u << codeBits_);
      clear();
      return;
    }
    // The reader is one string behind.
    if (next_ == 1u << width_) ++width_;
    table_[text] = next_++;
  }
  void put(unsigned code) {
    buffer_ |= static_cast<std::uint64_t>(code) << have_;
    have_ += width_;
    for (; have_ >= 8; have_ -= 8, buffer_ >>= 8) bytes_ += static_cast<char>(buffer_ & 255);
  }

  unsigned codeBits_;
  unsigned width_ = 0;
  unsigned next_ = 0;
  std::map<std::string, unsigned> table_;
  std::uint64_t buffer_ = 0;
  unsigned have_ = 0;
  std::string bytes_;
};

struct GIF {
  Example picture = {};
  int frames = 1;
  bool interlaced = false;
  bool localPalette = false;
  bool extension = false;
  bool endCode = true;
  bool trailer = true;
  unsigned codeBits = 3;  // the palette has so many
  std::size_t pixelsLeftOut = 0;

  std::string bytes() const {
    const std::string size =
        little16(static_cast<unsigned>(picture.w)) + little16(static_cast<unsigned>(picture.h));
    const unsigned flags = localPalette ? 0 : 0x80 | (codeBits - 1);
    std::string file = std::string("GIF89a") + size + little(flags, 1) + little16(0);
    if (!localPalette) file += palette();
    if (extension) file += std::string("\x21\xfe\x05hello\0", 9);
    for (int k = 0; k < frames; ++k) file += frame(size);
    return file + (trailer ? ";" : "");
  }

 private:
  std::string palette() const {
    std::string all;
    for (unsigned k = 0; k < 1u << codeBits; ++k) {
      const std::string c = Example::colour(k);
      all += {c[2], c[1], c[0]};
    }
    return all;
  }
  std::string frame(const std::string& size) const {
    const unsigned flags = (localPalette ? 0x80 | (codeBits - 1) : 0) | (interlaced ? 0x40 : 0);
    std::vector<unsigned> pixels;
    const auto addRow = [&](int y) {
      for (int x = 0; x < picture.w; ++x) pixels.push_back(picture.number(x, y));
    };
    if (!interlaced) {
      for (int y = 0; y < picture.h; ++y) addRow(y);
    } else {
      for (const auto& [first, step] : {std::pair{0, 8}, {4, 8}, {2, 4}, {1, 2}}) {
        for (int y = first; y < picture.h; y += step) addRow(y);
      }
    }
    pixels.resize(pixels.size() - pixelsLeftOut);
    return std::string(",") + little32(0) + size + little(flags, 1) +
           (localPalette ? palette() : "") + little(codeBits, 1) +
           GifCodes(codeBits).blocks(pixels, endCode);
  }
};

// --- TGA and TIFF, of 24 bits a pixel

// Rows from top to bottom; the first bytes are those of a cursor too.
inline std::string tga(const Example& picture = {}) {
  std::string bytes = std::string("\0\0\2", 3) + std::string(9, 0) +
                      little16(static_cast<unsigned>(picture.w)) +
                      little16(static_cast<unsigned>(picture.h)) + "\x18\x20";
  for (int y = 0; y < picture.h; ++y) {
    for (int x = 0; x < picture.w; ++x) bytes += Example::colour(picture.number(x, y));
  }
  return bytes + std::string(8, 0) + "TRUEVISION-XFILE." + '\0';
}

// With its directory before the pixels, in strips of four rows.
inline std::string tiff(const Example& picture = {}) {
  const unsigned w = static_cast<unsigned>(picture.w), h = static_cast<unsigned>(picture.h);
  constexpr unsigned kEntries = 9, kRows = 4;
  const unsigned strips = (h + kRows - 1) / kRows;
  const unsigned bits = 8 + 2 + 12 * kEntries + 4, offsets = bits + 6,
                 counts = offsets + 4 * strips;
  const unsigned pixels = counts + 4 * strips;
  const auto entry = [](unsigned tag, unsigned type, unsigned count, unsigned value) {
    return little16(tag) + little16(type) + little32(count) + little32(value);
  };
  std::string bytes = std::string("II*\0", 4) + little32(8) + little16(kEntries) +
                      entry(256, 4, 1, w) + entry(257, 4, 1, h) + entry(258, 3, 3, bits) +
                      entry(259, 3, 1, 1) + entry(262, 3, 1, 2) + entry(273, 4, strips, offsets) +
                      entry(277, 3, 1, 3) + entry(278, 3, 1, kRows) +
                      entry(279, 4, strips, counts) + little32(0);
  for (int k = 0; k < 3; ++k) bytes += little16(8);
  for (unsigned k = 0; k < strips; ++k) bytes += little32(pixels + k * kRows * w * 3);
  for (unsigned k = 0; k < strips; ++k) bytes += little32(std::min(kRows, h - k * kRows) * w * 3);
  for (int y = 0; y < picture.h; ++y) {
    for (int x = 0; x < picture.w; ++x) {
      const std::string c = Example::colour(picture.number(x, y));
      bytes += {c[2], c[1], c[0]};
    }
  }
  return bytes;
}

}  // namespace raw_pictures

#endif
