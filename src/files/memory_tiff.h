#ifndef RATSEG_FILES_MEMORY_TIFF_H
#define RATSEG_FILES_MEMORY_TIFF_H

#include <tiffio.h>

#include <string>
#include <string_view>
#include <vector>

namespace namespace_ratseg {

// libtiff at work on bytes in memory. What it complains about is collected instead of printed.
class MemoryTiff {
 public:
  // Reads the bytes, which outlive it. Throws FileError where they are no TIFF file.
  explicit MemoryTiff(std::string_view bytes);
  // Writes a new file; bytes() has it once close() was called.
  MemoryTiff();
  ~MemoryTiff();
  MemoryTiff(const MemoryTiff&) = delete;
  MemoryTiff& operator=(const MemoryTiff&) = delete;

  TIFF* get() const { return tiff_; }
  void close();
  std::string& bytes() { return written_; }

  // Lines without control characters, each once.
  const std::vector<std::string>& errors() const { return errors_; }
  const std::vector<std::string>& warnings() const { return warnings_; }

  // ": " and the first error; "" where there is none.
  std::string because() const { return errors_.empty() ? "" : ": " + errors_[0]; }

 private:
  struct Calls;  // the functions that libtiff calls
  void open(const char* mode);
  void note(std::vector<std::string>& lines, const char* format, va_list values);

  TIFF* tiff_ = nullptr;
  std::string_view read_;
  std::string written_;
  bool writes_ = false;
  std::size_t at_ = 0;
  std::vector<std::string> errors_, warnings_;
};

}  // namespace namespace_ratseg

#endif
