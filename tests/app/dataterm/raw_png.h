#ifndef RATSEG_TESTS_APP_DATATERM_RAW_PNG_H
#define RATSEG_TESTS_APP_DATATERM_RAW_PNG_H

// PNG files of any kind, byte by byte, without the library whose reading is tested.

#include <zlib.h>

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>

struct RawPng {
  static constexpr int kGrey = 0, kColour = 2, kIndexed = 3, kGreyAlpha = 4, kColourAlpha = 6;

  int w = 1;
  int h = 1;
  int bits = 8;
  int colourType = kGrey;
  std::string rows;     // h rows of packed samples, without filter bytes
  std::string palette;  // red, green and blue of each index
  std::string transparency;
  bool interlaced = false;  // of 8 bits only

  std::string bytes() const {
    std::string header = number(w) + number(h);
    header += {static_cast<char>(bits), static_cast<char>(colourType), 0, 0,
               static_cast<char>(interlaced ? 1 : 0)};
    std::string file = "\x89PNG\r\n\x1a\n" + chunk("IHDR", header);
    if (!palette.empty()) file += chunk("PLTE", palette);
    if (!transparency.empty()) file += chunk("tRNS", transparency);
    return file + chunk("IDAT", compressed(withFilterBytes())) + chunk("IEND", "");
  }

  void save(const std::string& file) const { std::ofstream(file, std::ios::binary) << bytes(); }

 private:
  static std::string number(int n) {
    const auto u = static_cast<std::uint32_t>(n);
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(u >> shift & 255);
    return text;
  }

  static std::string chunk(const std::string& name, const std::string& data) {
    const std::string body = name + data;
    const auto crc =
        crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size()));
    return number(static_cast<int>(data.size())) + body +
           number(static_cast<int>(static_cast<std::uint32_t>(crc)));
  }

  std::string inPasses() const {
    static constexpr int x0[] = {0, 4, 0, 2, 0, 1, 0}, dx[] = {8, 8, 4, 4, 2, 2, 1};
    static constexpr int y0[] = {0, 0, 4, 0, 2, 0, 1}, dy[] = {8, 8, 8, 4, 4, 2, 2};
    std::string text;
    for (int pass = 0; pass < 7; ++pass) {
      for (int y = y0[pass]; y < h && x0[pass] < w; y += dy[pass]) {
        text += '\0';
        for (int x = x0[pass]; x < w; x += dx[pass]) {
          text += rows[static_cast<std::size_t>(y) * static_cast<std::size_t>(w) +
                       static_cast<std::size_t>(x)];
        }
      }
    }
    return text;
  }

  std::string withFilterBytes() const {
    if (interlaced) return inPasses();
    const std::size_t rowBytes = rows.size() / static_cast<std::size_t>(h);
    std::string text;
    for (std::size_t at = 0; at < rows.size(); at += rowBytes) {
      text += '\0' + rows.substr(at, rowBytes);
    }
    return text;
  }

  static std::string compressed(const std::string& data) {
    std::string result(compressBound(data.size()), '\0');
    uLongf size = result.size();
    if (compress(reinterpret_cast<Bytef*>(result.data()), &size,
                 reinterpret_cast<const Bytef*>(data.data()), data.size()) != Z_OK) {
      throw std::runtime_error("compress");
    }
    return result.substr(0, size);
  }
};

#endif
