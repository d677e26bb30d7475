#include "util/pictures/png_reader.h"

#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>

#include "util/pictures/byte_reader.h"

namespace namespace_ratseg {

namespace {

// The state that libpng's functions work with.
struct Source {
  std::string_view file;
  std::size_t at = 0;
  PngRows result;
};

Source& sourceOf(png_structp png) { return *static_cast<Source*>(png_get_io_ptr(png)); }

void readBytes(png_structp png, png_bytep to, std::size_t count) {
  Source& source = sourceOf(png);
  if (count > source.file.size() - source.at) {
    source.result.cut = true;
    png_error(png, "the file ends early");
  }
  std::memcpy(to, source.file.data() + source.at, count);
  source.at += count;
}

[[noreturn]] void takeError(png_structp png, png_const_charp message) {
  static_cast<Source*>(png_get_error_ptr(png))->result.error = message;
  png_longjmp(png, 1);
}

void takeWarning(png_structp png, png_const_charp message) {
  auto& warnings = static_cast<Source*>(png_get_error_ptr(png))->result.warnings;
  if (std::find(warnings.begin(), warnings.end(), message) == warnings.end()) {
    warnings.emplace_back(message);
  }
}

using TakeRow = std::function<void(std::size_t, const std::uint8_t*)>;

// Everything that lives here may be left behind by a jump: nothing in it owns memory.
void decode(png_structp png, png_infop info, std::vector<std::uint8_t>& row, Source& source,
            const TakeRow& takeRow) {
  if (setjmp(png_jmpbuf(png)) != 0) return;  // takeError comes back here
  png_set_check_for_invalid_index(png, -1);  // Whoever wants to know has the numbers.
  png_read_info(png, info);
  png_colorp palette = nullptr;
  int colours = 0;
  if (png_get_PLTE(png, info, &palette, &colours) != 0) {
    source.result.colours = static_cast<std::size_t>(colours);
  }
  png_set_packing(png);
  const int passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);
  const std::size_t h = png_get_image_height(png, info);
  // An interlaced row is put together from all passes.
  const bool together = passes > 1 && takeRow;
  const std::size_t rowBytes = png_get_rowbytes(png, info);
  row.resize(together ? rowBytes * h : rowBytes);
  for (int pass = 0; pass < passes; ++pass) {
    for (std::size_t y = 0; y < h; ++y) {
      std::uint8_t* const to = row.data() + (together ? y * rowBytes : 0);
      source.result.rows = y;
      png_read_row(png, to, nullptr);
      if (takeRow) takeRow(y, to);
    }
  }
  source.result.rows = h;
  png_read_end(png, nullptr);
  source.result.ended = true;
}

}  // namespace

// The signature, and of the chunk IHDR: length, name, width, height, bit depth, colour type.
bool readPngHeader(std::string_view file, PngHeader& header) {
  const ByteReader in(file);
  if (!in.has(0, 26) || !file.starts_with(kPngMark) || file.substr(12, 4) != "IHDR") {
    return false;
  }
  header = {in.big32(16), in.big32(20), in.byte(24), in.byte(25)};
  return true;
}

PngRows readPngRows(std::string_view file, const TakeRow& takeRow) {
  Source source{file, 0, {}};
  std::vector<std::uint8_t> row;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &source, takeError, takeWarning);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  if (info != nullptr) {
    png_set_read_fn(png, &source, readBytes);
    decode(png, info, row, source, takeRow);
  } else {
    source.result.error = "out of memory";
  }
  png_destroy_read_struct(&png, &info, nullptr);
  using std::string_view_literals::operator""sv;
  const std::size_t mark = file.rfind("\0\0\0\0IEND"sv);
  source.result.endMark = mark != std::string_view::npos && mark + 12 > file.size();
  return source.result;
}

Wholeness wholenessOf(const PngRows& read, std::size_t h) {
  const std::string rows = std::to_string(read.rows) + " of " + std::to_string(h) + " rows";
  if (read.ended) return {};
  if (read.rows < h && read.cut) return {endsEarly(read.rows, h, "rows"), ""};
  if (read.rows < h) return {"is damaged: " + read.error + "; " + rows + " are there", ""};
  if (read.cut && read.endMark) return {"", "is cut in its end mark"};
  if (read.cut) return {"ends early: its end mark is missing, though all its rows are there", ""};
  return {"is damaged behind its pixels: " + read.error, ""};
}

Wholeness checkPNG(std::string_view file) {
  PngHeader header;
  if (!readPngHeader(file, header)) return {"ends early: its header is not complete", ""};
  const PngRows read = readPngRows(file, {});
  Wholeness whole = wholenessOf(read, header.h);
  whole.complaints = read.warnings;
  return whole;
}

}  // namespace namespace_ratseg
