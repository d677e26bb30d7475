#include "util/pictures/wholeness.h"

#include <algorithm>
#include <array>

#include "util/pictures/byte_reader.h"
#include "util/pictures/png_reader.h"

namespace namespace_ratseg {

namespace {

using std::string_view_literals::operator""sv;

// A file that says how long it is.
Wholeness checkLength(std::string_view file, std::size_t length) {
  if (file.size() >= length) return {};
  return {endsEarly(file.size(), length, "bytes"), ""};
}

// RIFF: the mark, the length of the rest in bytes.
Wholeness checkWebP(std::string_view file) {
  return checkLength(file, std::size_t{8} + ByteReader(file).little32(4));
}

// Pictures, each behind its kind and its length; some of them are PNG files.
Wholeness checkICNS(std::string_view file) {
  const ByteReader in(file);
  const Wholeness cut = checkLength(file, in.big32(4));
  for (std::size_t at = 8; cut.error.empty() && in.has(at, 8);) {
    const std::size_t length = std::max<std::size_t>(8, in.big32(at + 4));
    const std::string_view picture = file.substr(at + 8, length - 8);
    const Wholeness whole = picture.starts_with(kPngMark) ? checkPNG(picture) : Wholeness{};
    if (!whole.error.empty()) return {"holds a PNG that " + whole.error, ""};
    at += length;
  }
  return cut;
}

// An animation of PNG chunks: lengths, names, data, check sums; the last one is MEND.
Wholeness checkMNG(std::string_view file) {
  const ByteReader in(file);
  for (std::size_t at = 8; in.has(at, 12);) {
    const std::size_t length = in.big32(at);
    if (!in.has(at, length + 12)) break;
    if (file.substr(at + 4, 4) == "MEND") return {};
    at += length + 12;
  }
  return {"ends early: its end mark is missing", ""};
}

bool isWebP(std::string_view file) {
  return file.starts_with("RIFF") && file.substr(0, 12).ends_with("WEBP");
}

bool isPNM(std::string_view file) {
  return file.size() > 2 && file[0] == 'P' && file[1] >= '1' && file[1] <= '6';
}

struct Format {
  std::string_view mark;
  Wholeness (*check)(std::string_view);
};

constexpr std::array kFormats = {
    Format{kPngMark, checkPNG},     Format{"\xff\xd8"sv, checkJPEG},
    Format{"GIF8"sv, checkGIF},     Format{"BM"sv, checkBMP},
    Format{"\0\0\1\0"sv, checkICO}, Format{"\0\0\2\0"sv, checkICO},
    Format{"icns"sv, checkICNS},    Format{"\x8aMNG\r\n\x1a\n"sv, checkMNG},
    Format{"#define"sv, checkXBM}};

}  // namespace

std::string endsEarly(std::size_t found, std::size_t expected, const char* unit) {
  return "ends early: " + std::to_string(found) + " of " + std::to_string(expected) + " " + unit +
         " are there";
}

std::string beyondPalette(std::size_t highest, std::size_t colours) {
  return "has colour numbers up to " + std::to_string(highest) + ", but a palette of " +
         std::to_string(colours) + (colours == 1 ? " colour" : " colours");
}

Wholeness checkWholeness(std::string_view file) {
  for (const Format& format : kFormats) {
    if (file.starts_with(format.mark)) return format.check(file);
  }
  if (isWebP(file)) return checkWebP(file);
  if (isPNM(file)) return checkPNM(file);
  return {};
}

}  // namespace namespace_ratseg
