#ifndef RATSEG_FUZZ_TARGET_H
#define RATSEG_FUZZ_TARGET_H

// What the targets share. A target takes any bytes, gives them to a parser and checks what the
// parser promises; it aborts where a promise is broken.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

[[noreturn]] inline void broken(const char* file, int line, const std::string& promise) {
  std::fprintf(stderr, "%s:%d: broken: %s\n", file, line, promise.c_str());
  std::abort();
}

// Aborts unless the condition holds. The text says what was promised.
#define FUZZ_EXPECT(condition, text)                            \
  do {                                                          \
    if (!(condition)) fuzz::broken(__FILE__, __LINE__, (text)); \
  } while (false)

// A file of its own in memory, with a name by which it can be opened any number of times.
class MemoryFile {
 public:
  MemoryFile() : file_(memfd_create("fuzz", 0)) {
    if (file_ < 0) std::abort();
    path_ = "/proc/self/fd/" + std::to_string(file_);
  }
  ~MemoryFile() { close(file_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  const std::string& path() const { return path_; }

  void write(std::string_view bytes) const {
    const bool ok = ftruncate(file_, 0) == 0 && pwrite(file_, bytes.data(), bytes.size(), 0) ==
                                                    static_cast<ssize_t>(bytes.size());
    if (!ok) std::abort();
  }

 private:
  int file_;
  std::string path_;
};

// Standard output and standard error while it lives, as text.
class Captured {
 public:
  Captured() : out_(std::cout.rdbuf(outText_.rdbuf())), err_(std::cerr.rdbuf(errText_.rdbuf())) {}
  ~Captured() {
    std::cout.rdbuf(out_);
    std::cerr.rdbuf(err_);
  }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;

  std::string out() const { return outText_.str(); }
  std::string err() const { return errText_.str(); }

 private:
  std::ostringstream outText_, errText_;
  std::streambuf *out_, *err_;
};

// The parts between zero bytes: words of a command line can hold every other byte.
inline std::vector<std::string> splitAtZeros(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty()) {
    const std::size_t end = text.find('\0');
    words.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return words;
}

// argc and argv of a program "p" with these words.
class CommandLine {
 public:
  explicit CommandLine(std::vector<std::string> words) : words_(std::move(words)), argv_{"p"} {
    for (const std::string& word : words_) argv_.push_back(word.c_str());
  }
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  int argc() const { return static_cast<int>(argv_.size()); }
  const char* const* argv() const { return argv_.data(); }

 private:
  std::vector<std::string> words_;
  std::vector<const char*> argv_;
};

inline bool isControl(char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }

inline bool hasControl(std::string_view text) {
  for (char c : text) {
    if (isControl(c)) return true;
  }
  return false;
}

// The lines of a text; the last one need not be ended.
inline std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

inline bool hasErrorLine(const std::string& text) {
  return text.starts_with("ERROR") || text.find("\nERROR") != std::string::npos;
}

// Aborts unless each line has the form of what ratseg says on standard error.
inline void expectMessages(const std::string& err) {
  for (const std::string& line : linesOf(err)) {
    FUZZ_EXPECT(line.starts_with("ratseg: "), "each line on standard error begins with ratseg:");
    FUZZ_EXPECT(!hasControl(line), "messages hold no control characters");
  }
}

}  // namespace fuzz

#endif
