#include "files/memory_tiff.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "device/quoted.h"
#include "files/file_error.h"

namespace namespace_ratseg {

// Nothing may be thrown through libtiff.
struct MemoryTiff::Calls {
  static MemoryTiff& of(void* self) { return *static_cast<MemoryTiff*>(self); }

  static std::size_t sizeOf(const MemoryTiff& file) {
    return file.writes_ ? file.written_.size() : file.read_.size();
  }

  static tmsize_t read(thandle_t self, void* to, tmsize_t count) {
    MemoryTiff& file = of(self);
    const std::string_view bytes = file.writes_ ? std::string_view(file.written_) : file.read_;
    if (count <= 0 || file.at_ >= bytes.size()) return 0;
    const std::size_t some = std::min(static_cast<std::size_t>(count), bytes.size() - file.at_);
    std::memcpy(to, bytes.data() + file.at_, some);
    file.at_ += some;
    return static_cast<tmsize_t>(some);
  }

  static tmsize_t write(thandle_t self, void* from, tmsize_t count) {
    MemoryTiff& file = of(self);
    if (!file.writes_ || count < 0) return -1;
    try {
      const std::size_t end = file.at_ + static_cast<std::size_t>(count);
      if (end > file.written_.size()) file.written_.resize(end);
      std::memcpy(file.written_.data() + file.at_, from, static_cast<std::size_t>(count));
      file.at_ = end;
      return count;
    } catch (const std::exception&) {
      return -1;
    }
  }

  static toff_t seek(thandle_t self, toff_t offset, int from) {
    MemoryTiff& file = of(self);
    const std::size_t base = from == SEEK_CUR ? file.at_ : from == SEEK_END ? sizeOf(file) : 0;
    file.at_ = base + static_cast<std::size_t>(offset);
    return file.at_;
  }

  static toff_t size(thandle_t self) { return sizeOf(of(self)); }
  static int close(thandle_t) { return 0; }

  static int error(TIFF*, void* self, const char*, const char* format, va_list values) {
    of(self).note(of(self).errors_, format, values);
    return 1;
  }
  static int warning(TIFF*, void* self, const char*, const char* format, va_list values) {
    // Many programs write tags of their own, which do no harm.
    if (std::string_view(format).starts_with("Unknown field with tag")) return 1;
    of(self).note(of(self).warnings_, format, values);
    return 1;
  }
};

void MemoryTiff::note(std::vector<std::string>& lines, const char* format, va_list values) {
  constexpr std::size_t kMost = 20;
  char text[200];
  std::vsnprintf(text, sizeof text, format, values);
  try {
    const std::string line = inLine(text);
    const bool known = std::find(lines.begin(), lines.end(), line) != lines.end();
    if (!known && lines.size() < kMost) lines.push_back(line);
  } catch (const std::exception&) {
    // Without memory for its reason an error stays an error.
  }
}

void MemoryTiff::open(const char* mode) {
  TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
  if (options == nullptr) throw std::bad_alloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options, Calls::error, this);
  TIFFOpenOptionsSetWarningHandlerExtR(options, Calls::warning, this);
  tiff_ = TIFFClientOpenExt("memory", mode, this, Calls::read, Calls::write, Calls::seek,
                            Calls::close, Calls::size, nullptr, nullptr, options);
  TIFFOpenOptionsFree(options);
}

MemoryTiff::MemoryTiff(std::string_view bytes) : read_(bytes) {
  open("rm");
  if (tiff_ == nullptr) throw FileError("is a damaged TIFF" + because());
}

MemoryTiff::MemoryTiff() : writes_(true) {
  open("wm");
  if (tiff_ == nullptr) throw std::bad_alloc();
}

MemoryTiff::~MemoryTiff() { close(); }

void MemoryTiff::close() {
  if (tiff_ != nullptr) TIFFClose(tiff_);
  tiff_ = nullptr;
}

}  // namespace namespace_ratseg
