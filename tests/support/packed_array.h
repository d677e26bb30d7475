#ifndef RATSEG_TESTS_SUPPORT_PACKED_ARRAY_H
#define RATSEG_TESTS_SUPPORT_PACKED_ARRAY_H

// Packed-array files read and written with zlib alone, so that tests do not lean on the code that
// they check: a gzip stream of an 8-byte little-endian count and the elements.

#include <zlib.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

template <class T>
std::vector<T> readPackedArray(const std::string& file) {
  gzFile f = gzopen(file.c_str(), "rb");
  if (f == nullptr) throw std::runtime_error("cannot open " + file);
  std::uint64_t count = 0;
  bool ok = gzread(f, &count, sizeof count) == static_cast<int>(sizeof count);
  std::vector<T> data(ok ? count : 0);
  const auto bytes = static_cast<unsigned>(data.size() * sizeof(T));
  ok = ok && gzread(f, data.data(), bytes) == static_cast<int>(bytes);
  char more = 0;
  ok = ok && gzread(f, &more, 1) == 0;
  gzclose(f);
  if (!ok) throw std::runtime_error("not a packed array: " + file);
  return data;
}

template <class T>
void writePackedArray(const std::string& file, const std::vector<T>& data) {
  gzFile f = gzopen(file.c_str(), "wb1");
  if (f == nullptr) throw std::runtime_error("cannot open " + file);
  const std::uint64_t count = data.size();
  const auto bytes = static_cast<unsigned>(data.size() * sizeof(T));
  const bool ok = gzwrite(f, &count, sizeof count) == static_cast<int>(sizeof count) &&
                  (bytes == 0 || gzwrite(f, data.data(), bytes) == static_cast<int>(bytes));
  if (gzclose(f) != Z_OK || !ok) throw std::runtime_error("cannot write " + file);
}

#endif
