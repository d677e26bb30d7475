#include "util/gzip_reader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "util/fileio.h"

namespace namespace_ratseg {
namespace {

std::string randomBytes(std::size_t count) {
  std::mt19937 generator(5);
  std::string bytes;
  while (bytes.size() < count) bytes += static_cast<char>(generator() >> 24);
  return bytes;
}

// A gzip stream of the bytes, as zlib packs it in memory.
std::string packed(std::string bytes, int level = 1) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, level, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string out(deflateBound(&stream, bytes.size()), '\0');
  stream.next_in = reinterpret_cast<unsigned char*>(bytes.data());
  stream.avail_in = static_cast<unsigned int>(bytes.size());
  stream.next_out = reinterpret_cast<unsigned char*>(out.data());
  stream.avail_out = static_cast<unsigned int>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(out.size() - stream.avail_out);
  deflateEnd(&stream);
  return out;
}

class GzipFile : public testing::Test {
 protected:
  void save(const std::string& bytes) const { std::ofstream(file_, std::ios::binary) << bytes; }

  // Reads in pieces until nothing more comes.
  static std::string readAll(GzipReader& reader, std::size_t piece) {
    std::string bytes;
    std::string buffer(piece, '\0');
    for (std::size_t got; (got = reader.read(buffer.data(), piece)) > 0;)
      bytes.append(buffer, 0, got);
    return bytes;
  }
  void expectBytes(const std::string& bytes, bool isPacked) const {
    for (const std::size_t piece : {1, 7, 100, 65536, 1000000}) {
      GzipReader reader(file_);
      EXPECT_EQ(readAll(reader, piece), bytes) << piece;
      EXPECT_TRUE(reader.ok());
      EXPECT_EQ(reader.packed(), isPacked);
    }
  }

  const TempDir dir_;
  const std::string file_ = dir_.file("file.gz");
};

TEST_F(GzipFile, IsUnpacked) {
  for (const std::size_t count : {0, 1, 1000, 65535, 65536, 200000}) {
    SCOPED_TRACE(count);
    save(packed(randomBytes(count)));
    expectBytes(randomBytes(count), true);
    save(packed(std::string(count, 'x'), 9));
    expectBytes(std::string(count, 'x'), true);
  }
}

TEST_F(GzipFile, OfSeveralStreamsIsUnpackedAsOne) {
  save(packed("one") + packed("") + packed(randomBytes(70000)) + "no stream");
  expectBytes("one" + randomBytes(70000), true);
}

TEST_F(GzipFile, ThatIsNoneIsReadAsItIs) {
  for (const std::string& bytes : {std::string(), std::string("\x1f"), std::string("text"),
                                   std::string("\x1f\x8c"), randomBytes(100000)}) {
    save(bytes);
    expectBytes(bytes, false);
  }
}

TEST_F(GzipFile, ThatIsMissingIsNotOpen) {
  GzipReader reader(dir_.file("missing"));
  char byte;
  EXPECT_FALSE(reader.isOpen());
  EXPECT_EQ(reader.read(&byte, 1), 0u);
}

TEST_F(GzipFile, ThatIsAFolderCannotBeRead) {
  GzipReader reader(dir_.path().string());
  char byte;
  EXPECT_EQ(reader.read(&byte, 1), 0u);
  EXPECT_EQ(reader.error(), "Is a directory");
}

TEST_F(GzipFile, CutAnywhereIsTold) {
  const std::string bytes = randomBytes(300);
  const std::string whole = packed(bytes, 9);
  for (std::size_t length = 2; length < whole.size(); ++length) {
    save(whole.substr(0, length));
    GzipReader reader(file_);
    const std::string found = readAll(reader, 1000);
    EXPECT_EQ(found, bytes.substr(0, found.size()));
    EXPECT_TRUE(reader.cut()) << length;
    EXPECT_EQ(reader.error(), "");
  }
}

TEST_F(GzipFile, WithWrongBytesIsTold) {
  const std::string bytes = std::string(5000, 'x') + randomBytes(20);
  const std::string whole = packed(bytes, 9);
  for (std::size_t k = 10; k < whole.size(); ++k) {
    std::string wrong = whole;
    wrong[k] = static_cast<char>(wrong[k] ^ 4);
    save(wrong);
    GzipReader reader(file_);
    const std::string found = readAll(reader, 1000);
    // A bit of a code that is not used changes nothing.
    EXPECT_TRUE(!reader.ok() || found == bytes) << k;
  }
}

// Packed arrays of all sizes: those of gzread's buffer and their multiples too.
class PackedArraySizes : public GzipFile {
 protected:
  bool loads(std::size_t count) const {
    std::vector<float> array(count);
    bool more = true;
    return FileIO::loadArray<float>(file_, array.data(), count, &more) && !more;
  }
};

TEST_F(PackedArraySizes, NoneLoadsWithAWrongChecksumOrWithoutAllOfIt) {
  const std::string numbers = randomBytes(100000);
  const auto tryCount = [&](std::size_t count) {
    const std::uint64_t header = count;
    const std::string bytes = std::string(reinterpret_cast<const char*>(&header), sizeof header) +
                              numbers.substr(0, 4 * count);
    const std::string whole = packed(bytes, 0);
    save(whole);
    ASSERT_TRUE(loads(count)) << count;
    std::string wrong = whole;
    wrong[whole.size() - 8] ^= 1;
    save(wrong);
    ASSERT_FALSE(loads(count)) << count << " elements in " << whole.size() << " bytes";
    wrong = whole;
    wrong[whole.size() - 1] ^= 1;  // the length
    save(wrong);
    ASSERT_FALSE(loads(count)) << count;
    save(whole.substr(0, whole.size() - 1 - count % 8));
    ASSERT_FALSE(loads(count)) << count << " elements, cut by " << 1 + count % 8;
  };
  // Each size around the ends of gzread's buffers of 8192 packed and 16384 unpacked bytes, and some
  // between.
  for (std::size_t count = 1; count < 18000; ++count) {
    const std::size_t bytes = 8 + 4 * count;
    if (bytes % 8192 > 8150 || bytes % 8192 < 16 || count % 397 == 0) tryCount(count);
  }
}

}  // namespace
}  // namespace namespace_ratseg
