// Packed arrays: FileIO::loadArray and FileIO::inspectGZ beside zlib's inflate.
//
// The first byte says what the others are: even, the file itself; odd, the bytes that a gzip stream
// is made of, behind a number of tampered bytes: one byte with their count (at most 7) and four
// each, the place in the stream (2), what is added there, and how many bytes are cut off (only of
// the last).

#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "target.h"
#include "util/fileio.h"

namespace {

using namespace_ratseg::FileIO;

constexpr std::size_t kMostBytes = std::size_t{1} << 20;

std::string gzipOf(std::string_view bytes) {
  z_stream stream = {};
  if (deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) std::abort();
  std::string out(deflateBound(&stream, bytes.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  if (deflate(&stream, Z_FINISH) != Z_STREAM_END) std::abort();
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// The file that the input describes.
std::string fileOf(std::string_view input) {
  if (input.empty() || input[0] % 2 == 0) {
    return std::string(input.substr(input.empty() ? 0 : 1));
  }
  input.remove_prefix(1);
  const std::size_t wanted = input.empty() ? 0 : static_cast<unsigned char>(input[0]) % 8;
  if (!input.empty()) input.remove_prefix(1);
  const std::size_t tampered = std::min(wanted, input.size() / 4);
  std::string file = gzipOf(input.substr(4 * tampered));
  for (std::size_t i = 0; i < tampered; ++i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(input[4 * i + k]); };
    file[(byte(0) * 256u + byte(1)) % file.size()] += static_cast<char>(byte(2));
    if (i + 1 == tampered)
      file.resize(file.size() - std::min<std::size_t>(byte(3), file.size() - 1));
  }
  return file;
}

// What a gzip stream holds by zlib's inflate: all its members.
struct Unpacked {
  bool gzip = false;   // it begins as gzip streams do
  bool whole = false;  // each member to its end, with its checksum and its length
  bool large = false;  // more than is looked at here
  std::string bytes;
  std::vector<std::size_t> ends;  // bytes up to the end of each whole member

  // Whether the members that hold the first bytes are whole.
  bool wholeUpTo(std::size_t count) const { return !ends.empty() && ends.back() >= count; }
};

Unpacked unpack(const std::string& file) {
  Unpacked result;
  result.gzip = file.size() >= 2 && file[0] == '\x1f' && file[1] == '\x8b';
  z_stream stream = {};
  if (inflateInit2(&stream, 15 + 16) != Z_OK) std::abort();
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(file.data()));
  stream.avail_in = static_cast<uInt>(file.size());
  std::string buffer(1 << 16, '\0');
  int status = Z_OK;
  while (status == Z_OK && result.bytes.size() <= kMostBytes) {
    stream.next_out = reinterpret_cast<Bytef*>(buffer.data());
    stream.avail_out = static_cast<uInt>(buffer.size());
    status = inflate(&stream, Z_NO_FLUSH);
    result.bytes.append(buffer, 0, buffer.size() - stream.avail_out);
    if (status == Z_STREAM_END) result.ends.push_back(result.bytes.size());
    const bool another = status == Z_STREAM_END && stream.avail_in >= 2 &&
                         stream.next_in[0] == 0x1f && stream.next_in[1] == 0x8b;
    if (another) status = inflateReset(&stream);
  }
  result.whole = status == Z_STREAM_END;
  result.large = result.bytes.size() > kMostBytes;
  inflateEnd(&stream);
  return result;
}

std::uint64_t countOf(const std::string& bytes) {
  std::uint64_t count = 0;
  if (bytes.size() >= sizeof count) std::memcpy(&count, bytes.data(), sizeof count);
  return count;
}

// Loads count elements of T and compares them with the bytes that hold them, which are all of the
// file's where allRead.
template <class T>
bool load(const std::string& path, std::size_t count, const std::string& bytes, bool allRead) {
  std::vector<T> array(count + 1);
  std::memset(array.data(), 0x5a, array.size() * sizeof(T));
  bool more = false;
  const fuzz::Captured captured;
  if (!FileIO::loadArray<T>(path, array.data(), count, &more)) return false;
  FUZZ_EXPECT(bytes.size() >= sizeof count + count * sizeof(T), "no element is made up");
  FUZZ_EXPECT(countOf(bytes) == count, "the file has as many elements as were asked for");
  FUZZ_EXPECT(std::memcmp(array.data(), bytes.data() + sizeof count, count * sizeof(T)) == 0,
              "the elements are those of the file");
  FUZZ_EXPECT(!allRead || more == (bytes.size() > sizeof count + count * sizeof(T)),
              "more tells whether bytes follow");
  T behind;
  std::memset(&behind, 0x5a, sizeof behind);
  FUZZ_EXPECT(std::memcmp(&array[count], &behind, sizeof behind) == 0,
              "nothing is written behind the array");
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::MemoryFile disk;
  const std::string file = fileOf({reinterpret_cast<const char*>(data), size});
  const Unpacked gzip = unpack(file);
  if (gzip.large) return 0;
  const std::string& bytes = gzip.gzip ? gzip.bytes : file;
  disk.write(file);

  const FileIO::GZContents found = FileIO::inspectGZ(disk.path(), kMostBytes);
  FUZZ_EXPECT(found.opened, "a file that is there opens");
  if (gzip.gzip && gzip.whole) {
    FUZZ_EXPECT(found.packed && found.bytes == bytes.size(), "all of a whole stream is counted");
    if (bytes.size() >= 8) FUZZ_EXPECT(found.count == countOf(bytes), "its count is found");
  }
  if (gzip.gzip && !gzip.whole) {
    FUZZ_EXPECT(found.cut || !found.error.empty() || !found.packed,
                "a stream that is not whole is not said to be");
  }

  const std::uint64_t count = countOf(bytes);
  if (count == 0 || count > kMostBytes) return 0;
  const bool allRead = !gzip.gzip || gzip.whole;
  const bool asFloats = load<float>(disk.path(), count, bytes, allRead);
  const bool asInts = load<int>(disk.path(), count, bytes, allRead);
  FUZZ_EXPECT(asFloats == asInts, "the type of the elements does not matter");
  const bool enough = bytes.size() >= sizeof count + count * sizeof(float);
  if (gzip.gzip) {
    FUZZ_EXPECT(!asFloats || gzip.wholeUpTo(sizeof count + count * sizeof(float)),
                "accepted only with right checksum and length");
    FUZZ_EXPECT(asFloats || !gzip.whole || !enough, "a whole stream is accepted");
  } else {
    FUZZ_EXPECT(asFloats == enough, "uncompressed files are accepted where they are long enough");
  }
  return 0;
}
