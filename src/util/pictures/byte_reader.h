#ifndef RATSEG_UTIL_PICTURES_BYTE_READER_H
#define RATSEG_UTIL_PICTURES_BYTE_READER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace namespace_ratseg {

// Numbers in a file's bytes. Bytes behind the end read as 0.
class ByteReader {
 public:
  explicit ByteReader(std::string_view bytes) : bytes_(bytes) {}

  std::size_t size() const { return bytes_.size(); }
  bool has(std::size_t at, std::size_t count) const {
    return at <= bytes_.size() && count <= bytes_.size() - at;
  }

  std::uint8_t byte(std::size_t at) const {
    return at < bytes_.size() ? static_cast<std::uint8_t>(bytes_[at]) : std::uint8_t{0};
  }
  std::uint16_t little16(std::size_t at) const {
    return static_cast<std::uint16_t>(byte(at) | byte(at + 1) << 8);
  }
  std::uint16_t big16(std::size_t at) const {
    return static_cast<std::uint16_t>(byte(at) << 8 | byte(at + 1));
  }
  std::uint32_t little32(std::size_t at) const {
    return little16(at) | static_cast<std::uint32_t>(little16(at + 2)) << 16;
  }
  std::uint32_t big32(std::size_t at) const {
    return static_cast<std::uint32_t>(big16(at)) << 16 | big16(at + 2);
  }

 private:
  std::string_view bytes_;
};

}  // namespace namespace_ratseg

#endif
