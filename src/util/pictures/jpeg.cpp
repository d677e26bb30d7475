#include <cstddef>
#include <cstdio>
// Needs the two above it.
#include <jpeglib.h>

#include <algorithm>
#include <csetjmp>
#include <vector>

#include "util/pictures/byte_reader.h"
#include "util/pictures/wholeness.h"

// A JPEG file is a chain of segments, each a mark of two bytes, FF and its kind, and mostly a
// length. Behind the one of kind SOS are the pixels, in which FF is followed by 0 or the number of
// a restart. The last mark is EOI; anything may follow it.

namespace namespace_ratseg {

namespace {

constexpr std::uint8_t kStart = 0xd8, kEnd = 0xd9, kScan = 0xda;

bool isRestart(std::uint8_t kind) { return kind >= 0xd0 && kind <= 0xd7; }

// The position of the next mark's kind byte, or the file's size.
std::size_t findMark(std::string_view file, std::size_t at) {
  const ByteReader in(file);
  while ((at = file.find('\xff', at)) != std::string_view::npos) {
    while (in.has(at, 1) && in.byte(at) == 0xff) ++at;  // Any number of them may fill a gap.
    if (in.has(at, 1) && in.byte(at) != 0 && !isRestart(in.byte(at))) return at;
  }
  return file.size();
}

bool hasEndMark(std::string_view file) {
  const ByteReader in(file);
  std::size_t at = 0;
  while ((at = findMark(file, at)) < file.size()) {
    const std::uint8_t kind = in.byte(at++);
    if (kind == kEnd) return true;
    if (kind != kStart && kind != 0x01) at += in.big16(at);
    at = std::min(at, file.size());
  }
  return false;
}

struct Decoder {
  jpeg_decompress_struct info{};
  jpeg_error_mgr errors{};
  jpeg_source_mgr source{};
  std::jmp_buf leave{};
  bool counts = false;   // rows can be counted as they come
  bool lacking = false;  // pixels are missing or damaged
  std::size_t rows = 0;  // that were complete by then
};

Decoder& decoderOf(j_common_ptr info) { return *static_cast<Decoder*>(info->client_data); }

// Behind the last byte of the file the decoder gets the end mark, and warns where it is too early.
boolean giveEndMark(j_decompress_ptr info) {
  static const JOCTET mark[2] = {0xff, kEnd};
  info->src->next_input_byte = mark;
  info->src->bytes_in_buffer = sizeof mark;
  return TRUE;
}

void takeMessage(j_common_ptr info, int level) {
  if (level < 0) decoderOf(info).lacking = true;
}

void prepare(Decoder& decoder, std::string_view file) {
  decoder.info.err = jpeg_std_error(&decoder.errors);
  decoder.errors.error_exit = [](j_common_ptr info) { std::longjmp(decoderOf(info).leave, 1); };
  decoder.errors.emit_message = takeMessage;
  decoder.info.client_data = &decoder;
  jpeg_create_decompress(&decoder.info);
  decoder.source.next_input_byte = reinterpret_cast<const JOCTET*>(file.data());
  decoder.source.bytes_in_buffer = file.size();
  decoder.source.init_source = [](j_decompress_ptr) {};
  decoder.source.term_source = [](j_decompress_ptr) {};
  decoder.source.fill_input_buffer = giveEndMark;
  decoder.source.skip_input_data = [](j_decompress_ptr info, long count) {
    jpeg_source_mgr& source = *info->src;
    const std::size_t skipped =
        std::min(static_cast<std::size_t>(std::max(count, 0L)), source.bytes_in_buffer);
    source.next_input_byte += skipped;
    source.bytes_in_buffer -= skipped;
  };
  decoder.source.resync_to_restart = jpeg_resync_to_restart;
  decoder.info.src = &decoder.source;
}

// Reads rows until some are missing. Nothing in here owns memory, since it may be left by a jump.
void countRows(Decoder& decoder, std::vector<JSAMPLE>& row) {
  jpeg_decompress_struct& info = decoder.info;
  if (setjmp(decoder.leave) != 0) {
    decoder.lacking = true;
    return;
  }
  jpeg_read_header(&info, TRUE);
  info.out_color_space = info.jpeg_color_space;  // no conversion
  if (jpeg_has_multiple_scans(&info) != 0) return;
  jpeg_start_decompress(&info);
  decoder.counts = true;
  row.resize(static_cast<std::size_t>(info.output_width) *
             static_cast<std::size_t>(info.output_components));
  JSAMPLE* rows[1] = {row.data()};
  while (!decoder.lacking && info.output_scanline < info.output_height) {
    decoder.rows = info.output_scanline;
    jpeg_read_scanlines(&info, rows, 1);
  }
  // Bytes left over when all rows were read are not part of the picture.
  constexpr std::size_t kEndMark = 2;
  decoder.lacking = decoder.lacking || decoder.source.bytes_in_buffer > kEndMark;
}

}  // namespace

Wholeness checkJPEG(std::string_view file) {
  if (hasEndMark(file)) return {};
  Decoder decoder;
  std::vector<JSAMPLE> row;
  prepare(decoder, file);
  countRows(decoder, row);
  const std::size_t h = decoder.info.image_height;
  jpeg_destroy_decompress(&decoder.info);
  if (decoder.counts && !decoder.lacking) {
    return {"", "has no end mark, though all its rows are there"};
  }
  if (decoder.counts) return {endsEarly(decoder.rows, h, "rows"), ""};
  return {"ends early: its end mark is missing behind " + std::to_string(file.size()) + " bytes",
          ""};
}

}  // namespace namespace_ratseg
