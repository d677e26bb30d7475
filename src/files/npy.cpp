#include "files/npy.h"

#include <algorithm>
#include <cstring>

#include "device/quoted.h"
#include "files/file_error.h"
#include "files/npy_header.h"
#include "util/pictures/byte_reader.h"

namespace namespace_ratseg {

namespace {

using std::string_view_literals::operator""sv;

constexpr std::string_view kMark = "\x93NUMPY"sv;
constexpr std::size_t kLongestHeader = 1 << 16;

struct Element {
  SampleType type;
  bool bigEndian = false;
};

Element elementOf(const std::string& descr) {
  constexpr char kRead[] = ", but f2, f4, f8, u1 and u2 are read";
  const std::string kind = descr.size() == 3 ? descr.substr(1) : "";
  const bool order = !descr.empty() && std::string("<>=|").find(descr[0]) != std::string::npos;
  const bool isFloat = kind == "f2" || kind == "f4" || kind == "f8";
  const bool isInteger = kind == "u1" || kind == "u2";
  if (!order || (!isFloat && !isInteger)) {
    throw FileError("has elements of type " + inQuotes(descr) + kRead);
  }
  return {{isFloat ? SampleKind::floating : SampleKind::unsignedInteger, 8 * (kind[1] - '0')},
          descr[0] == '>'};
}

// Where the header's text is in the file.
std::string_view headerText(std::string_view file, std::size_t& end) {
  const ByteReader bytes(file);
  const int version = bytes.byte(6);
  if (!bytes.has(0, 8)) throw FileError("ends early: its header is not complete");
  if (version < 1 || version > 3) {
    throw FileError("is of version " + std::to_string(version) +
                    " of numpy's format, but 1 to 3 "
                    "are read");
  }
  const std::size_t at = version == 1 ? 10 : 12;
  if (!bytes.has(0, at)) throw FileError("ends early: its header is not complete");
  const std::size_t length = version == 1 ? bytes.little16(8) : bytes.little32(8);
  if (length > kLongestHeader) throw FileError("is damaged: its header has more than 64 KiB");
  if (!bytes.has(at, length)) throw FileError("ends early: its header is not complete");
  end = at + length;
  return file.substr(at, length);
}

}  // namespace

bool beginsNpy(std::string_view file) { return file.starts_with(kMark); }

Array readNpy(std::string_view file, const CheckElements& check) {
  if (!beginsNpy(file)) throw FileError("is no file of numpy's");
  std::size_t at = 0;
  const NpyHeader header = parseNpyHeader(headerText(file, at));
  const Element element = elementOf(header.descr);
  Array array;
  array.shape = header.shape;
  array.fortranOrder = header.fortranOrder;
  array.samples = element.type;
  const std::size_t count = elementCount(array.shape);
  const auto each = static_cast<std::size_t>(element.type.bits / 8);
  const std::size_t there = (file.size() - at) / each;
  if (there < count) {
    throw FileError("ends early: " + std::to_string(there) + " of " + std::to_string(count) +
                    " elements are there");
  }
  check(count);
  array.values.resize(count);
  const auto* from = reinterpret_cast<const std::uint8_t*>(file.data() + at);
  // In pieces, so that swapping needs little memory.
  constexpr std::size_t kPiece = 1 << 14;
  std::vector<std::uint8_t> piece(kPiece * each);
  for (std::size_t k = 0; k < count; k += kPiece) {
    const std::size_t some = std::min(kPiece, count - k);
    std::memcpy(piece.data(), from + k * each, some * each);
    if (element.bigEndian) swapBytes(piece.data(), some, each);
    toFloats(element.type, piece.data(), some, array.values.data() + k);
  }
  return array;
}

std::string npyOfLabels(const int* labels, std::size_t w, std::size_t h) {
  std::string header = "{'descr': '<i4', 'fortran_order': False, 'shape': (" + std::to_string(h) +
                       ", " + std::to_string(w) + "), }";
  constexpr std::size_t kBefore = 10, kAligned = 64;
  header.resize((kBefore + header.size() + 1 + kAligned - 1) / kAligned * kAligned - kBefore, ' ');
  header.back() = '\n';
  std::string bytes(kMark);
  bytes += {1, 0, static_cast<char>(header.size() & 255), static_cast<char>(header.size() >> 8)};
  bytes += header;
  const std::size_t at = bytes.size();
  bytes.resize(at + w * h * sizeof(int));
  std::memcpy(bytes.data() + at, labels, w * h * sizeof(int));
  return bytes;
}

}  // namespace namespace_ratseg
