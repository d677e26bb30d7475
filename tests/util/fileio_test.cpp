#include "util/fileio.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

#include "support/packed_array.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

using testing::Each;
using testing::ElementsAre;

std::string bytesOf(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void writeBytes(const std::string& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
}

template <class T>
std::string rawBytes(const std::vector<T>& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size() * sizeof(T)};
}

// The uncompressed contents of a packed array.
template <class T>
std::string packedBytes(std::uint64_t count, const std::vector<T>& data) {
  return rawBytes(std::vector<std::uint64_t>{count}) + rawBytes(data);
}

void writeGzip(const std::string& file, const std::string& bytes) {
  gzFile f = gzopen(file.c_str(), "wb1");
  ASSERT_NE(f, nullptr);
  ASSERT_EQ(gzwrite(f, bytes.data(), static_cast<unsigned int>(bytes.size())),
            static_cast<int>(bytes.size()));
  ASSERT_EQ(gzclose(f), Z_OK);
}

std::string readGzip(const std::string& file) {
  gzFile f = gzopen(file.c_str(), "rb");
  std::string bytes(1000, '\0');
  bytes.resize(gzread(f, bytes.data(), 1000));
  gzclose(f);
  return bytes;
}

// A number that changes when a file was left open.
int nextDescriptor() {
  const int descriptor = dup(STDIN_FILENO);
  close(descriptor);
  return descriptor;
}

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

template <class T>
struct Load {
  bool ok;
  std::string output;
  std::vector<T> array;
};

template <class T>
Load<T> load(const std::string& file, std::size_t count) {
  Load<T> result{false, "", std::vector<T>(count, T{-1})};
  testing::internal::CaptureStdout();
  const int before = nextDescriptor();
  result.ok = FileIO::loadArray<T>(file, result.array.data(), count);
  const int after = nextDescriptor();
  result.output = testing::internal::GetCapturedStdout();
  EXPECT_EQ(after, before) << "the file was left open";
  return result;
}

// loadGZ and writeGZ.

class Handle : public testing::Test {
 protected:
  gzFile open(const std::string& file, int flags, const char* mode) {
    descriptor_ = ::open(file.c_str(), flags, 0600);
    EXPECT_GE(descriptor_, 0);
    return gzdopen(descriptor_, mode);
  }

  const TempDir dir_;
  const std::string file_ = dir_.file("data.gz");
  int descriptor_ = -1;
};

TEST_F(Handle, LoadReadsOnAndKeepsItOpen) {
  writeGzip(file_, "abcdefgh");
  gzFile f = open(file_, O_RDONLY, "rb");
  char first[4] = {};
  char rest[6] = {};
  EXPECT_TRUE(FileIO::loadGZ(f, first, 3));
  EXPECT_TRUE(FileIO::loadGZ(f, rest, 5));
  EXPECT_STREQ(first, "abc");
  EXPECT_STREQ(rest, "defgh");
  EXPECT_TRUE(isOpen(descriptor_));
  EXPECT_EQ(gzclose(f), Z_OK);
}

TEST_F(Handle, LoadOfTooMuchClosesIt) {
  writeGzip(file_, "abcdefgh");
  gzFile f = open(file_, O_RDONLY, "rb");
  char bytes[9];
  EXPECT_FALSE(FileIO::loadGZ(f, bytes, 9));
  EXPECT_FALSE(isOpen(descriptor_));
}

TEST_F(Handle, LoadOfAFileOpenedForWritingClosesIt) {
  gzFile f = open(file_, O_WRONLY | O_CREAT, "wb");
  char byte;
  EXPECT_FALSE(FileIO::loadGZ(f, &byte, 1));
  EXPECT_FALSE(isOpen(descriptor_));
}

TEST_F(Handle, WriteKeepsItOpen) {
  gzFile f = open(file_, O_WRONLY | O_CREAT, "wb9");
  EXPECT_TRUE(FileIO::writeGZ(f, "abc", 3));
  EXPECT_TRUE(FileIO::writeGZ(f, "defgh", 5));
  EXPECT_TRUE(isOpen(descriptor_));
  EXPECT_EQ(gzclose(f), Z_OK);
  EXPECT_EQ(readGzip(file_), "abcdefgh");
}

TEST_F(Handle, WriteToAFileOpenedForReadingClosesIt) {
  writeGzip(file_, "abc");
  gzFile f = open(file_, O_RDONLY, "rb");
  EXPECT_FALSE(FileIO::writeGZ(f, "abc", 3));
  EXPECT_FALSE(isOpen(descriptor_));
}

TEST_F(Handle, NoBytesAreLoadedAndWrittenWell) {
  gzFile f = open(file_, O_WRONLY | O_CREAT, "wb9");
  EXPECT_TRUE(FileIO::writeGZ(f, nullptr, 0));
  gzclose(f);
  f = open(file_, O_RDONLY, "rb");
  EXPECT_TRUE(FileIO::loadGZ(f, nullptr, 0));
  gzclose(f);
}

TEST_F(Handle, PiecesMakeUpTheWhole) {
  std::string bytes(100, '\0');
  std::iota(bytes.begin(), bytes.end(), '\x10');
  for (const std::size_t piece : {1, 7, 50, 99, 100, 101}) {
    gzFile f = open(file_, O_WRONLY | O_CREAT | O_TRUNC, "wb9");
    EXPECT_TRUE(FileIO::writeGZ(f, bytes.data(), bytes.size(), piece)) << piece;
    gzclose(f);
    EXPECT_EQ(readGzip(file_), bytes) << piece;
    std::string loaded(100, '\0');
    f = open(file_, O_RDONLY, "rb");
    EXPECT_TRUE(FileIO::loadGZ(f, loaded.data(), loaded.size(), piece)) << piece;
    gzclose(f);
    EXPECT_EQ(loaded, bytes) << piece;
  }
}

TEST_F(Handle, LoadThatFailsInALaterPieceClosesIt) {
  writeGzip(file_, "abcdefgh");
  char bytes[12];
  for (const std::size_t piece : {3, 4}) {
    gzFile f = open(file_, O_RDONLY, "rb");
    EXPECT_FALSE(FileIO::loadGZ(f, bytes, sizeof bytes, piece)) << piece;
    EXPECT_FALSE(isOpen(descriptor_)) << piece;
  }
}

// More than 4 GiB that take no memory until they are written to.
class Unreserved {
 public:
  static constexpr std::size_t kBytes = (std::size_t{1} << 32) + 8;
  Unreserved()
      : data(mmap(nullptr, kBytes, PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
  ~Unreserved() { munmap(data, kBytes); }
  Unreserved(const Unreserved&) = delete;
  Unreserved& operator=(const Unreserved&) = delete;
  void* const data;
};

TEST_F(Handle, LengthIsNotCutTo32Bits) {
  const Unreserved memory;
  ASSERT_NE(memory.data, MAP_FAILED);
  writeGzip(file_, "abcdefgh");
  EXPECT_FALSE(FileIO::loadGZ(open(file_, O_RDONLY, "rb"), memory.data, Unreserved::kBytes));
  // The disk is full long before the end of the data.
  EXPECT_FALSE(
      FileIO::writeGZ(open("/dev/full", O_WRONLY, "wb1"), memory.data, std::size_t{1} << 32));
}

TEST(FileIO, PieceIsOneThatZlibMoves) {
  EXPECT_GT(FileIO::kPieceBytes, 0u);
  EXPECT_LE(FileIO::kPieceBytes, static_cast<std::size_t>(std::numeric_limits<int>::max()));
}

// Packed arrays.

class PackedArray : public testing::Test {
 protected:
  const TempDir dir_;
  const std::string file_ = dir_.file("array.gz");
};

TEST_F(PackedArray, FloatsAndIntsAreLoaded) {
  const std::vector<float> floats = {1.5f, -2, 3.4028235e38f, 0.1f};
  writePackedArray(file_, floats);
  const auto f = load<float>(file_, 4);
  EXPECT_TRUE(f.ok);
  EXPECT_EQ(f.array, floats);
  EXPECT_EQ(f.output, "");

  const std::vector<int> ints = {1, -2, std::numeric_limits<int>::min()};
  writePackedArray(file_, ints);
  const auto i = load<int>(file_, 3);
  EXPECT_TRUE(i.ok);
  EXPECT_EQ(i.array, ints);
}

TEST_F(PackedArray, UncompressedFileIsLoaded) {
  const std::vector<float> floats = {1, 2, 3};
  writeBytes(file_, packedBytes(3, floats));
  const auto result = load<float>(file_, 3);
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.array, floats);
}

TEST_F(PackedArray, BytesBehindTheElementsAreIgnoredAndTold) {
  for (const char* rest : {"", "x", "12345678"}) {
    writeGzip(file_, packedBytes<float>(2, {1, 2}) + rest);
    const auto result = load<float>(file_, 2);
    EXPECT_TRUE(result.ok);
    EXPECT_THAT(result.array, ElementsAre(1, 2));
    EXPECT_EQ(result.output, "");
    bool more = *rest == '\0';
    float array[2];
    EXPECT_TRUE(FileIO::loadArray<float>(file_, array, 2, &more));
    EXPECT_EQ(more, *rest != '\0');
  }
}

TEST_F(PackedArray, MissingArrayIsAnError) {
  writePackedArray<float>(file_, {1});
  for (const std::string& file : {file_, dir_.file("missing")}) {
    testing::internal::CaptureStdout();
    EXPECT_FALSE(FileIO::loadArray<float>(file, nullptr, 1));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ERROR (FileIO::loadArray()): array must be allocated\n");
  }
}

TEST_F(PackedArray, NoElementsIsAnError) {
  writePackedArray<float>(file_, {});
  for (const std::size_t count : {0, 3}) {
    std::vector<float> array(3);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(FileIO::loadArray(file_, array.data(), count));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ERROR (File::loadArray()): No elements in file\n");
  }
  EXPECT_EQ(load<float>(file_, 3).output, "ERROR (File::loadArray()): No elements in file\n");
}

TEST_F(PackedArray, OtherCountIsAnErrorWithBothNumbers) {
  writePackedArray(file_, std::vector<float>(100, 1.0f));
  const auto result = load<float>(file_, 300);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.output,
            "ERROR (FileIO::loadArray()): Number of elements in file = 100, but should be 300\n");
  EXPECT_THAT(result.array, Each(-1.0f));
  EXPECT_FALSE(load<float>(file_, 99).ok);
}

TEST_F(PackedArray, CountHas64Bits) {
  writeBytes(file_, packedBytes<float>((std::uint64_t{1} << 32) + 1, {1}));
  const auto result = load<float>(file_, 1);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.output,
            "ERROR (FileIO::loadArray()): Number of elements in file = 4294967297, but should be "
            "1\n");
}

TEST_F(PackedArray, MissingFileIsASilentFailure) {
  const auto result = load<float>(dir_.file("missing"), 1);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.output, "");
  EXPECT_FALSE(load<float>(dir_.path().string(), 1).ok);
}

TEST_F(PackedArray, ShortHeaderIsASilentFailure) {
  for (const std::string& bytes : {std::string(), std::string(7, '\1')}) {
    writeGzip(file_, bytes);
    const auto result = load<float>(file_, 1);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.output, "");
  }
}

TEST_F(PackedArray, ShortPayloadIsASilentFailure) {
  const std::string bytes = packedBytes<float>(3, {1, 2, 3});
  writeGzip(file_, bytes.substr(0, bytes.size() - 1));
  const auto result = load<float>(file_, 3);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.output, "");
}

TEST_F(PackedArray, CutGzipStreamIsASilentFailure) {
  std::vector<int> ints(1000);
  for (std::size_t i = 0; i < ints.size(); ++i) ints[i] = static_cast<int>(i * i * 7919);
  writePackedArray(file_, ints);
  const std::string bytes = bytesOf(file_);
  writeBytes(file_, bytes.substr(0, bytes.size() / 2));
  const auto result = load<int>(file_, 1000);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.output, "");
}

TEST_F(PackedArray, IsInspectedUpToALimit) {
  writePackedArray<float>(file_, std::vector<float>(100000, 0.5f));
  for (const std::size_t limit : {1000000, 400009, 400008, 400007, 65536, 12, 0}) {
    const FileIO::GZContents found = FileIO::inspectGZ(file_, limit);
    EXPECT_TRUE(found.opened);
    EXPECT_EQ(found.bytes, std::min<std::size_t>(limit, 400008));
    EXPECT_EQ(found.count, limit > 0 ? 100000u : 0u);
    EXPECT_FALSE(found.cut);
    EXPECT_EQ(found.error, "");
  }
  EXPECT_TRUE(FileIO::inspectGZ(file_, 1000).packed);
  EXPECT_FALSE(FileIO::inspectGZ(dir_.file("missing"), 1000).opened);
}

TEST_F(PackedArray, OfPlainBytesIsInspectedToo) {
  writeBytes(file_, packedBytes<float>(7, {1}));
  const FileIO::GZContents found = FileIO::inspectGZ(file_, 1000);
  EXPECT_FALSE(found.packed);
  EXPECT_EQ(found.bytes, 12u);
  EXPECT_EQ(found.count, 7u);
  writeBytes(file_, "\x03\x02\x01");
  EXPECT_EQ(FileIO::inspectGZ(file_, 1000).count, 0x010203u);
}

TEST_F(PackedArray, ThatIsCutOrDamagedIsToldWhenItIsInspected) {
  std::vector<int> ints(1000);
  for (std::size_t i = 0; i < ints.size(); ++i) ints[i] = static_cast<int>(i * i * 7919);
  writePackedArray(file_, ints);
  const std::string bytes = bytesOf(file_);
  writeBytes(file_, bytes.substr(0, bytes.size() / 2));
  const FileIO::GZContents cut = FileIO::inspectGZ(file_, 10000);
  EXPECT_TRUE(cut.cut);
  EXPECT_EQ(cut.error, "");
  EXPECT_GT(cut.bytes, 1000u);
  EXPECT_LT(cut.bytes, 4008u);
  std::string wrong = bytes;
  wrong[bytes.size() - 8] ^= 1;  // the checksum
  writeBytes(file_, wrong);
  const FileIO::GZContents damaged = FileIO::inspectGZ(file_, 10000);
  EXPECT_FALSE(damaged.cut);
  EXPECT_EQ(damaged.error, "incorrect data check");
}

TEST_F(PackedArray, SavedArrayHasACountAndTheElements) {
  EXPECT_TRUE(FileIO::saveArray<int>(file_, std::vector<int>{7, -1, 256}.data(), 3));
  const std::string expected(
      "\3\0\0\0\0\0\0\0"
      "\7\0\0\0\xFF\xFF\xFF\xFF\0\1\0\0",
      20);
  EXPECT_EQ(readGzip(file_), expected);
  EXPECT_TRUE(FileIO::saveArray<float>(file_, std::vector<float>{0.5f, -2}.data(), 2));
  EXPECT_THAT(readPackedArray<float>(file_), ElementsAre(0.5f, -2.0f));
}

TEST_F(PackedArray, SavedArrayIsCompressedBest) {
  const std::vector<int> zeros(100000);
  EXPECT_TRUE(FileIO::saveArray(file_, zeros.data(), zeros.size()));
  const std::string bytes = bytesOf(file_);
  ASSERT_GT(bytes.size(), 10u);
  EXPECT_EQ(bytes.substr(0, 2), "\x1F\x8B");
  EXPECT_EQ(bytes[8], 2) << "the gzip header's mark of best compression";
  EXPECT_LT(bytes.size(), 1000u);
}

TEST_F(PackedArray, SaveThatCannotWriteFails) {
  const std::vector<int> ints(100000, 5);
  const int before = nextDescriptor();
  EXPECT_FALSE(FileIO::saveArray(dir_.file("missing/array.gz"), ints.data(), ints.size()));
  // Nothing of this little array reaches the disk before the file is closed.
  EXPECT_FALSE(FileIO::saveArray("/dev/full", ints.data(), 3));
  std::string error;
  EXPECT_FALSE(FileIO::saveArray("/dev/full", ints.data(), 3, &error));
  EXPECT_EQ(error, "No space left on device");
  EXPECT_FALSE(FileIO::saveArray(dir_.file("missing/array.gz"), ints.data(), 3, &error));
  EXPECT_EQ(error, "No such file or directory");
  EXPECT_EQ(nextDescriptor(), before);
}

TEST_F(PackedArray, SaveThatFailsLeavesTheOldFile) {
  const std::vector<int> ints(1000000, 5);
  ASSERT_TRUE(FileIO::saveArray(file_, ints.data(), 3));
  const std::string before = bytesOf(file_);
  rlimit limit;
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit little = {100, limit.rlim_max};
  signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &little);
  std::string error;
  const bool saved = FileIO::saveArray(file_, ints.data(), ints.size(), &error);
  setrlimit(RLIMIT_FSIZE, &limit);
  signal(SIGXFSZ, SIG_DFL);
  EXPECT_FALSE(saved);
  EXPECT_EQ(error, "File too large");
  EXPECT_EQ(bytesOf(file_), before);
}

}  // namespace
}  // namespace namespace_ratseg
