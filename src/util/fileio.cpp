#include "util/fileio.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <vector>

#include "util/file_replacement.h"
#include "util/gzip_reader.h"

namespace namespace_ratseg {

static_assert(std::endian::native == std::endian::little, "packed arrays are little-endian");

namespace {

// Calls move(offset, bytes), which returns the number of bytes that zlib moved, for all pieces of
// len bytes. False, with file closed, as soon as one is not moved as a whole.
template <class Move>
bool moveGZ(gzFile file, std::size_t len, std::size_t pieceBytes, Move&& move) {
  for (std::size_t offset = 0; offset < len;) {
    const auto piece = static_cast<unsigned int>(std::min(len - offset, pieceBytes));
    const int moved = move(offset, piece);
    if (moved < 0 || static_cast<unsigned int>(moved) != piece) {
      gzclose(file);
      return false;
    }
    offset += piece;
  }
  return true;
}

}  // namespace

bool FileIO::loadGZ(gzFile file, void* dst, std::size_t len, std::size_t pieceBytes) {
  return moveGZ(file, len, pieceBytes, [&](std::size_t offset, unsigned int bytes) {
    return gzread(file, static_cast<char*>(dst) + offset, bytes);
  });
}

bool FileIO::writeGZ(gzFile file, const void* src, std::size_t len, std::size_t pieceBytes) {
  return moveGZ(file, len, pieceBytes, [&](std::size_t offset, unsigned int bytes) {
    return gzwrite(file, static_cast<const char*>(src) + offset, bytes);
  });
}

template <class T>
bool FileIO::loadArray(const std::string& filename, T* array, std::size_t count, bool* more) {
  if (array == nullptr) {
    std::cout << "ERROR (FileIO::loadArray()): array must be allocated" << std::endl;
    return false;
  }
  GzipReader file(filename);
  std::uint64_t inFile = 0;
  if (file.read(&inFile, sizeof inFile) != sizeof inFile) return false;
  if (inFile == 0) {
    std::cout << "ERROR (File::loadArray()): No elements in file" << std::endl;
    return false;
  }
  if (inFile != count) {
    std::cout << "ERROR (FileIO::loadArray()): Number of elements in file = " << inFile
              << ", but should be " << count << std::endl;
    return false;
  }
  if (file.read(array, count * sizeof(T)) != count * sizeof(T)) return false;
  // The checksum stands at the end.
  constexpr std::size_t kMaxBehind = std::size_t{1} << 28;
  std::vector<char> rest(std::size_t{1} << 16);
  std::size_t behind = 0;
  while (const std::size_t bytes = file.read(rest.data(), rest.size())) {
    behind += bytes;
    if (behind > kMaxBehind) break;
  }
  if (more != nullptr) *more = behind > 0;
  return file.ok();
}

FileIO::GZContents FileIO::inspectGZ(const std::string& filename, std::size_t limit) {
  GZContents found;
  GzipReader file(filename);
  found.opened = file.isOpen();
  std::vector<char> buffer(std::size_t{1} << 16);
  std::size_t bytes = 0;
  do {
    bytes = file.read(buffer.data(), std::min(buffer.size(), limit - found.bytes));
    if (found.bytes == 0)
      std::memcpy(&found.count, buffer.data(), std::min(bytes, sizeof found.count));
    found.bytes += bytes;
  } while (bytes > 0);
  found.packed = file.packed();
  found.cut = file.cut();
  found.error = file.error();
  return found;
}

template <class T>
bool FileIO::makeArray(FileReplacement& file, const T* array, std::size_t count, int level) {
  const std::string mode = "wb" + std::to_string(level);
  return file.make([&](int descriptor) {
    const int own = dup(descriptor);  // zlib closes it
    gzFile packed = own < 0 ? nullptr : gzdopen(own, mode.c_str());
    if (packed == nullptr) {
      if (own >= 0) close(own);
      return false;
    }
    const std::uint64_t inFile = count;
    // The rest, which zlib still holds, is written when the file is closed.
    return writeGZ(packed, &inFile, sizeof inFile) && writeGZ(packed, array, count * sizeof(T)) &&
           gzclose(packed) == Z_OK;
  });
}

template <class T>
bool FileIO::saveArray(const std::string& filename, const T* array, std::size_t count,
                       std::string* error) {
  FileReplacement file(filename);
  const bool saved = makeArray(file, array, count) && file.finish();
  if (!saved && error != nullptr) *error = textOfErrno(errno);
  return saved;
}

template bool FileIO::loadArray(const std::string&, float*, std::size_t, bool*);
template bool FileIO::loadArray(const std::string&, int*, std::size_t, bool*);
template bool FileIO::makeArray(FileReplacement&, const float*, std::size_t, int);
template bool FileIO::makeArray(FileReplacement&, const int*, std::size_t, int);
template bool FileIO::saveArray(const std::string&, const float*, std::size_t, std::string*);
template bool FileIO::saveArray(const std::string&, const int*, std::size_t, std::string*);

}  // namespace namespace_ratseg
