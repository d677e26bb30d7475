#include "files/npy_header.h"

#include <limits>

#include "files/file_error.h"

namespace namespace_ratseg {

namespace {

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  NpyHeader parse() {
    NpyHeader header;
    bool descr = false, order = false, shape = false;
    expect('{');
    while (!take('}')) {
      const std::string key = quoted();
      expect(':');
      if (key == "descr" && !descr) {
        descr = true;
        header.descr = descrText();
      } else if (key == "fortran_order" && !order) {
        order = true;
        header.fortranOrder = truth();
      } else if (key == "shape" && !shape) {
        shape = true;
        header.shape = sizes();
      } else {
        fail();
      }
      if (!take(',') && !next('}')) fail();
    }
    if (!blankToEnd() || !descr || !order || !shape) fail();
    return header;
  }

 private:
  [[noreturn]] static void fail() { throw FileError("is damaged: its header is none of numpy's"); }

  void skipBlanks() {
    while (!text_.empty() && (text_[0] == ' ' || text_[0] == '\t')) text_.remove_prefix(1);
  }
  bool next(char c) {
    skipBlanks();
    return !text_.empty() && text_[0] == c;
  }
  bool take(char c) {
    if (!next(c)) return false;
    text_.remove_prefix(1);
    return true;
  }
  void expect(char c) {
    if (!take(c)) fail();
  }

  std::string quoted() {
    const char quote = next('"') ? '"' : '\'';
    expect(quote);
    const std::size_t end = text_.find(quote);
    if (end == std::string_view::npos) fail();
    const std::string word(text_.substr(0, end));
    text_.remove_prefix(end + 1);
    return word;
  }

  std::string descrText() {
    if (next('[')) throw FileError("has elements that are records, but numbers are read");
    return quoted();
  }

  bool truth() {
    skipBlanks();
    for (const auto& [word, value] : {std::pair{"True", true}, {"False", false}}) {
      if (!text_.starts_with(word)) continue;
      text_.remove_prefix(std::string_view(word).size());
      return value;
    }
    fail();
  }

  std::size_t number() {
    skipBlanks();
    std::size_t value = 0, digits = 0;
    for (; !text_.empty() && text_[0] >= '0' && text_[0] <= '9'; text_.remove_prefix(1), ++digits) {
      const auto digit = static_cast<std::size_t>(text_[0] - '0');
      if (value > (std::numeric_limits<std::size_t>::max() - digit) / 10) fail();
      value = 10 * value + digit;
    }
    if (digits == 0) fail();
    if (!text_.empty() && text_[0] == 'L') text_.remove_prefix(1);  // of Python 2
    return value;
  }

  std::vector<std::size_t> sizes() {
    constexpr std::size_t kMostAxes = 32;
    std::vector<std::size_t> shape;
    expect('(');
    while (!take(')')) {
      if (shape.size() == kMostAxes) fail();
      shape.push_back(number());
      if (!take(',') && !next(')')) fail();
    }
    return shape;
  }

  bool blankToEnd() { return text_.find_first_not_of(" \t\n\r") == std::string_view::npos; }

  std::string_view text_;
};

}  // namespace

NpyHeader parseNpyHeader(std::string_view text) { return Parser(text).parse(); }

}  // namespace namespace_ratseg
