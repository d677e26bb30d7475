#ifndef RATSEG_FUZZ_PLAIN_PNG_H
#define RATSEG_FUZZ_PLAIN_PNG_H

// PNG files without the library that the programs use: chunks, and the pixels of pictures of one
// byte or less each that are not interlaced.

#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

inline constexpr std::string_view kPngSignature = "\x89PNG\r\n\x1a\n";

inline std::uint32_t bigEndian(std::string_view bytes, std::size_t at) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
  }
  return number;
}

inline std::string bigEndian(std::uint32_t number) {
  return {static_cast<char>(number >> 24), static_cast<char>(number >> 16),
          static_cast<char>(number >> 8), static_cast<char>(number)};
}

struct PngChunk {
  std::string name, data;
  bool right = false;  // its checksum is
};

// The checksum of a chunk's name and data.
inline std::uint32_t pngChecksum(std::string_view bytes) {
  return static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

// The chunks behind the signature, as far as they are whole.
inline std::vector<PngChunk> chunksOf(std::string_view file) {
  std::vector<PngChunk> chunks;
  if (!file.starts_with(kPngSignature)) return chunks;
  file.remove_prefix(kPngSignature.size());
  while (file.size() >= 12) {
    const std::size_t length = bigEndian(file, 0);
    if (length > file.size() - 12) break;
    const std::uint32_t sum = pngChecksum(file.substr(4, length + 4));
    chunks.push_back({std::string(file.substr(4, 4)), std::string(file.substr(8, length)),
                      sum == bigEndian(file, length + 8)});
    file.remove_prefix(length + 12);
  }
  return chunks;
}

inline std::string deflated(const std::string& bytes) {
  uLongf size = compressBound(bytes.size());
  std::string out(size, '\0');
  if (compress(reinterpret_cast<Bytef*>(out.data()), &size,
               reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()) != Z_OK) {
    std::abort();
  }
  out.resize(size);
  return out;
}

// The picture that an input describes, so that a fuzzer gets past checksums. Bits of the first
// byte: 1, checksums of chunks are made right; 2, the IDAT chunks are yet to be compressed.
inline std::string pictureOf(std::string_view input) {
  if (input.empty()) return "";
  const int form = input[0];
  input.remove_prefix(1);
  const std::vector<PngChunk> chunks = chunksOf(input);
  if (form % 4 == 0 || chunks.empty()) return std::string(input);
  std::string file(kPngSignature);
  for (const PngChunk& chunk : chunks) {
    const bool raw = (form & 2) != 0 && chunk.name == "IDAT";
    const std::string data = raw ? deflated(chunk.data) : chunk.data;
    const std::uint32_t sum = pngChecksum(chunk.name + data) + (chunk.right || form & 1 ? 0 : 1);
    file += bigEndian(static_cast<std::uint32_t>(data.size())) + chunk.name + data + bigEndian(sum);
  }
  return file;
}

// Pixels of the picture that the header of a PNG file announces; 0 where there is none.
inline std::uint64_t announcedPixels(std::string_view file) {
  if (file.size() < 24 || file.substr(12, 4) != "IHDR") return 0;
  return std::uint64_t{bigEndian(file, 16)} * bigEndian(file, 20);
}

// A picture of numbers, row by row.
struct PlainPicture {
  std::size_t w = 0, h = 0;
  int bits = 0, colourType = 0;
  std::vector<std::uint8_t> pixels = {};
  bool right = true;  // all checksums are right, and nothing is missing, too much or in disorder
  bool plain = true;  // right, and the chunks are IHDR, PLTE, IDAT and IEND alone
};

// What undoing a filter adds to a byte, from the bytes on the left, above, and above on the left.
inline int predicted(int filter, int left, int up, int corner) {
  switch (filter) {
    case 1:
      return left;
    case 2:
      return up;
    case 3:
      return (left + up) / 2;
    case 4: {
      const int p = left + up - corner;
      const int a = std::abs(p - left), b = std::abs(p - up), c = std::abs(p - corner);
      return a <= b && a <= c ? left : b <= c ? up : corner;
    }
    default:
      return 0;
  }
}

// Rows of stride bytes, a filter byte before each, as they were before they were filtered.
inline bool unfilter(std::string& rows, std::size_t stride, std::size_t h) {
  std::string above(stride, '\0');
  for (std::size_t y = 0; y < h; ++y) {
    char* row = rows.data() + y * (stride + 1);
    if (row[0] < 0 || row[0] > 4) return false;
    for (std::size_t k = 0; k < stride; ++k) {
      const auto at = [k](const char* bytes, std::size_t back) {
        return k < back ? 0 : static_cast<int>(static_cast<unsigned char>(bytes[k - back]));
      };
      const int left = at(row + 1, 1);
      row[1 + k] = static_cast<char>(
          row[1 + k] + predicted(row[0], left, at(above.data(), 0), at(above.data(), 1)));
    }
    above.assign(row + 1, stride);
  }
  return true;
}

// The first size bytes of a zlib stream; right says whether it ends there, with the right checksum.
inline std::optional<std::string> inflated(const std::string& stream, std::size_t size,
                                           bool& right) {
  z_stream z = {};
  if (inflateInit(&z) != Z_OK) std::abort();
  std::string out(size + 1, '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(stream.data()));
  z.avail_in = static_cast<uInt>(stream.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  const int status = inflate(&z, Z_FINISH);
  right = status == Z_STREAM_END && z.total_out == size && z.avail_in == 0;
  const bool enough = z.total_out >= size;
  inflateEnd(&z);
  if (!enough) return {};
  out.resize(size);
  return out;
}

// The pixels of an 8-bit grey or an indexed file that has them all and is not interlaced; nothing
// for all others.
inline std::optional<PlainPicture> plainPicture(std::string_view file) {
  const std::vector<PngChunk> chunks = chunksOf(file);
  if (chunks.empty() || chunks[0].name != "IHDR" || chunks[0].data.size() != 13) return {};
  const std::string& head = chunks[0].data;
  PlainPicture picture = {bigEndian(head, 0), bigEndian(head, 4), head[8], head[9]};
  const bool indexed = picture.colourType == 3;
  const bool bits = picture.bits == 8 ||
                    (indexed && (picture.bits == 1 || picture.bits == 2 || picture.bits == 4));
  if (!bits || (!indexed && picture.colourType != 0)) return {};
  if (head[10] != 0 || head[11] != 0 || head[12] != 0) return {};
  if (picture.w == 0 || picture.h == 0) return {};
  std::string stream, order;
  bool others = false;
  for (const PngChunk& chunk : chunks) {
    const bool critical = (chunk.name[0] & 0x20) == 0;
    picture.right = picture.right && chunk.right;
    others = others || !critical;
    if (chunk.name == "IDAT") stream += chunk.data;
    if (critical && !order.ends_with(chunk.name)) order += chunk.name;
  }
  bool right = false;
  const std::size_t stride = (picture.w * static_cast<std::size_t>(picture.bits) + 7) / 8;
  std::optional<std::string> rows = inflated(stream, (stride + 1) * picture.h, right);
  if (!rows || !unfilter(*rows, stride, picture.h)) return {};
  picture.right =
      picture.right && right && order == (indexed ? "IHDRPLTEIDATIEND" : "IHDRIDATIEND");
  picture.plain = picture.right && !others;
  const std::size_t perByte = 8 / static_cast<std::size_t>(picture.bits);
  for (std::size_t y = 0; y < picture.h; ++y) {
    for (std::size_t x = 0; x < picture.w; ++x) {
      const auto byte = static_cast<unsigned char>((*rows)[y * (stride + 1) + 1 + x / perByte]);
      const std::size_t shift = 8 - static_cast<std::size_t>(picture.bits) * (x % perByte + 1);
      picture.pixels.push_back(
          static_cast<std::uint8_t>(byte >> shift & ((1 << picture.bits) - 1)));
    }
  }
  return picture;
}

}  // namespace fuzz

#endif
