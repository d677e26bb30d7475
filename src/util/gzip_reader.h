#ifndef RATSEG_UTIL_GZIP_READER_H
#define RATSEG_UTIL_GZIP_READER_H

#include <zlib.h>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace namespace_ratseg {

// Unpacks a gzip file from its beginning to its end; a file that is none is read as it is, as
// gzread does. Unlike gzread it always tells a stream that ends before its checksum, or whose
// checksum is wrong, from one that ends well.
class GzipReader {
 public:
  explicit GzipReader(const std::string& filename);
  ~GzipReader();
  GzipReader(const GzipReader&) = delete;
  GzipReader& operator=(const GzipReader&) = delete;

  bool isOpen() const { return file_ != nullptr; }

  // Reads bytes until there are len of them or no more follow. Returns how many.
  std::size_t read(void* dst, std::size_t len);

  bool packed() const { return packed_; }              // a gzip stream
  bool cut() const { return cut_; }                    // it ended before its end
  const std::string& error() const { return error_; }  // what else is wrong, in zlib's words
  bool ok() const { return !cut_ && error_.empty(); }  // so far

 private:
  bool fill();
  bool beginsStream();
  std::size_t copy(unsigned char* dst, std::size_t len);
  std::size_t unpack(unsigned char* dst, std::size_t len);

  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
  std::vector<unsigned char> input_;
  z_stream stream_{};
  bool packed_ = false;
  bool inStream_ = false;
  bool cut_ = false;
  std::string error_;
};

}  // namespace namespace_ratseg

#endif
