// Formats without compression, whose header tells how much is to follow.

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <optional>

#include "util/pictures/byte_reader.h"
#include "util/pictures/wholeness.h"

namespace namespace_ratseg {

namespace {

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Numbers as text, between blanks and comments from # to the end of the line.
class TextNumbers {
 public:
  TextNumbers(std::string_view text, std::size_t at) : text_(text), at_(at) {}

  std::size_t at() const { return at_; }
  bool strange() const { return strange_; }

  // With oneDigit, each digit is a number of its own.
  std::optional<std::uint64_t> next(bool oneDigit = false) {
    skip();
    if (at_ >= text_.size()) return {};
    std::uint64_t number = 0;
    do {
      number = number * 10 + static_cast<unsigned>(text_[at_++] - '0');
    } while (!oneDigit && at_ < text_.size() && isDigit(text_[at_]) && number < kMax);
    return number;
  }

 private:
  static constexpr std::uint64_t kMax = 1u << 31;

  void skip() {
    bool comment = false;
    for (; at_ < text_.size() && (comment || !isDigit(text_[at_])); ++at_) {
      if (text_[at_] == '#') comment = true;
      if (text_[at_] == '\n') comment = false;
      strange_ = strange_ || !(comment || isSpace(text_[at_]));
    }
  }

  std::string_view text_;
  std::size_t at_;
  bool strange_ = false;  // something else than numbers, blanks and comments was skipped
};

struct PNM {
  std::uint64_t w = 0;
  std::uint64_t h = 0;
  std::uint64_t samples = 1;  // of a pixel
  bool bitmap = false;
};

Wholeness checkTextPNM(TextNumbers& numbers, const PNM& header) {
  const std::uint64_t needed = header.w * header.h * header.samples;
  std::uint64_t found = 0;
  while (found < needed && numbers.next(header.bitmap)) ++found;
  if (found < needed) return {endsEarly(found, needed, "numbers"), ""};
  if (numbers.strange()) return {"", "is damaged: it holds characters that are no numbers"};
  if (!numbers.next(header.bitmap)) return {};
  return {"", "holds more numbers than its size needs"};
}

Wholeness checkBinaryPNM(std::string_view pixels, const PNM& header, std::uint64_t maxValue) {
  const std::uint64_t row =
      header.bitmap ? (header.w + 7) / 8 : header.w * header.samples * (maxValue > 255 ? 2 : 1);
  const std::uint64_t needed = row * header.h;
  if (pixels.size() < needed) return {endsEarly(pixels.size(), needed, "bytes of pixels"), ""};
  const std::uint64_t more = pixels.size() - needed;
  // Another picture may follow.
  if (more < std::max<std::uint64_t>(row, 4) || pixels[needed] == 'P') return {};
  return {"", "holds " + std::to_string(more) + " bytes more than its size needs"};
}

// The number behind a word such as "_width ".
std::uint64_t numberBehind(std::string_view text, std::string_view word) {
  const std::size_t at = text.find(word);
  if (at == std::string_view::npos) return 0;
  return TextNumbers(text, at + word.size()).next().value_or(0);
}

}  // namespace

// "P" and a digit, width, height, but for bitmaps the greatest value, and the pixels.
Wholeness checkPNM(std::string_view file) {
  const int kind = file[1] - '0';
  TextNumbers numbers(file, 2);
  PNM header;
  header.bitmap = kind == 1 || kind == 4;
  header.samples = kind == 3 || kind == 6 ? 3 : 1;
  const auto w = numbers.next();
  const auto h = numbers.next();
  const auto maxValue = header.bitmap ? std::optional<std::uint64_t>(1) : numbers.next();
  if (!w || !h || !maxValue) return {"ends early: its header is not complete", ""};
  header.w = *w;
  header.h = *h;
  if (kind <= 3) return checkTextPNM(numbers, header);
  const std::size_t pixels = std::min(file.size(), numbers.at() + 1);  // behind one blank
  return checkBinaryPNM(file.substr(pixels), header, *maxValue);
}

// C source: #define name_width 40, #define name_height 30, and the bytes as 0x00.
Wholeness checkXBM(std::string_view file) {
  const std::uint64_t needed =
      (numberBehind(file, "_width ") + 7) / 8 * numberBehind(file, "_height ");
  std::uint64_t found = 0;
  std::size_t at = file.find('{');
  while (at < file.size() && (at = file.find("0x", at)) != std::string_view::npos) {
    const auto isHex = [&](std::size_t k) {
      return k < file.size() && std::isxdigit(static_cast<unsigned char>(file[k])) != 0;
    };
    if (isHex(at + 2) && isHex(at + 3)) ++found;
    at += 2;
  }
  if (found < needed) return {endsEarly(found, needed, "bytes of pixels"), ""};
  if (file.find('}') == std::string_view::npos) return {"", "has no end mark"};
  if (found > needed) return {"", "holds more bytes than its size needs"};
  return {};
}

// Its last 26 bytes tell where two more areas are, if there are any.
Wholeness checkTGA(std::string_view file) {
  const ByteReader in(file);
  constexpr std::size_t kHeader = 18, kEnd = 26;
  if (!in.has(kHeader, kEnd)) {
    return {endsEarly(in.size(), kHeader + kEnd, "bytes of its header"), ""};
  }
  const std::size_t end = in.size() - kEnd;
  const bool runs = (in.byte(2) & 8) != 0;
  const std::size_t map = in.byte(1) == 1 ? in.little16(5) * ((in.byte(7) + 7u) / 8) : 0;
  const std::size_t front = kHeader + in.byte(0) + map;
  const std::uint64_t pixels = std::uint64_t{in.little16(12)} * in.little16(14);
  const std::uint64_t needed = front + pixels * ((in.byte(16) + 7u) / 8);
  if (runs) return {};
  if (end < needed) return {endsEarly(end, needed, "bytes"), ""};
  const bool more = in.little32(end) != 0 || in.little32(end + 4) != 0;
  if (more || end == needed) return {};
  return {"", "holds " + std::to_string(end - needed) + " bytes more than its size needs"};
}

}  // namespace namespace_ratseg
