#include "util/gzip_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>

namespace namespace_ratseg {

namespace {

constexpr std::size_t kInputBytes = 65536;
constexpr std::size_t kPieceBytes = std::size_t{1} << 30;  // zlib counts in 32 bits
constexpr int kGzip = 15 + 16;  // window bits of zlib, and no zlib header

}  // namespace

GzipReader::GzipReader(const std::string& filename)
    : file_(std::fopen(filename.c_str(), "rbe"), &std::fclose), input_(kInputBytes) {
  if (inflateInit2(&stream_, kGzip) != Z_OK) throw std::bad_alloc();
  if (!isOpen()) return;
  std::setvbuf(file_.get(), nullptr, _IONBF, 0);
  packed_ = inStream_ = beginsStream();
}

GzipReader::~GzipReader() { inflateEnd(&stream_); }

// Reads on behind what is left of the input. False at the end of the file.
bool GzipReader::fill() {
  std::copy_n(stream_.next_in, stream_.avail_in, input_.data());
  stream_.next_in = input_.data();
  unsigned char* free = input_.data() + stream_.avail_in;
  errno = 0;
  const std::size_t bytes = std::fread(free, 1, input_.size() - stream_.avail_in, file_.get());
  if (std::ferror(file_.get()) != 0) error_ = std::generic_category().message(errno);
  stream_.avail_in += static_cast<unsigned int>(bytes);
  return bytes > 0;
}

bool GzipReader::beginsStream() {
  while (stream_.avail_in < 2) {
    if (!fill()) return false;
  }
  return stream_.next_in[0] == 0x1f && stream_.next_in[1] == 0x8b;
}

std::size_t GzipReader::copy(unsigned char* dst, std::size_t len) {
  std::size_t done = 0;
  while (done < len && (stream_.avail_in > 0 || fill())) {
    const std::size_t piece = std::min<std::size_t>(len - done, stream_.avail_in);
    std::memcpy(dst + done, stream_.next_in, piece);
    stream_.next_in += piece;
    stream_.avail_in -= static_cast<unsigned int>(piece);
    done += piece;
  }
  return done;
}

// One call of zlib: what it unpacked. Ends the stream where it ends.
std::size_t GzipReader::unpack(unsigned char* dst, std::size_t len) {
  if (stream_.avail_in == 0) fill();
  stream_.next_out = dst;
  stream_.avail_out = static_cast<unsigned int>(std::min(len, kPieceBytes));
  const unsigned int room = stream_.avail_out;
  const int result = inflate(&stream_, Z_NO_FLUSH);
  if (result == Z_STREAM_END) {
    inStream_ = beginsStream();  // Anything else that follows is not read.
    inflateReset(&stream_);
  } else if (result == Z_BUF_ERROR) {  // There is neither input nor output left.
    cut_ = error_.empty();
  } else if (result != Z_OK) {
    if (result == Z_MEM_ERROR) throw std::bad_alloc();
    error_ = stream_.msg != nullptr ? stream_.msg : zError(result);
  }
  return room - stream_.avail_out;
}

std::size_t GzipReader::read(void* dst, std::size_t len) {
  auto* to = static_cast<unsigned char*>(dst);
  if (!isOpen() || len == 0) return 0;
  if (!packed_) return copy(to, len);
  std::size_t done = 0;
  while (done < len && inStream_ && ok()) done += unpack(to + done, len - done);
  return done;
}

}  // namespace namespace_ratseg
