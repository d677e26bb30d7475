#include "util/whole_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <thread>

#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

class WholeFileTest : public testing::Test {
 protected:
  void save(const std::string& name, const std::string& bytes) const {
    std::ofstream(dir_.file(name), std::ios::binary) << bytes;
  }
  const TempDir dir_;
  const std::string long_ = std::string(5 << 20, 'x') + "end";
};

TEST_F(WholeFileTest, IsReadToItsEnd) {
  for (const std::string& bytes : {std::string(), std::string("a\0b", 3), long_}) {
    save("file", bytes);
    const WholeFile file = readWholeFile(dir_.file("file"), long_.size());
    EXPECT_TRUE(file.bytes == bytes);
    EXPECT_EQ(file.error, "");
    EXPECT_FALSE(file.tooLong);
  }
}

TEST_F(WholeFileTest, OfMoreBytesThanAllowedIsNotRead) {
  save("file", long_);
  EXPECT_TRUE(readWholeFile(dir_.file("file"), long_.size() - 1).tooLong);
  EXPECT_TRUE(readWholeFile(dir_.file("file"), 10).tooLong);
  EXPECT_TRUE(readWholeFile("/dev/zero", 1 << 20).tooLong);
}

TEST_F(WholeFileTest, ThatCannotBeReadHasAReason) {
  EXPECT_EQ(readWholeFile(dir_.file("none"), 10).error, "No such file or directory");
  EXPECT_EQ(readWholeFile(dir_.path().string(), 10).error, "Is a directory");
  EXPECT_EQ(readWholeFile("", 10).error, "No such file or directory");
}

TEST_F(WholeFileTest, MayBeAPipe) {
  ASSERT_EQ(mkfifo(dir_.file("pipe").c_str(), 0600), 0);
  std::thread writer([&] { save("pipe", long_); });
  std::size_t begin = 0;
  const WholeFile file = readWholeFile(dir_.file("pipe"), long_.size(), [&](const auto& bytes) {
    begin = bytes.size();
    return true;
  });
  writer.join();
  EXPECT_TRUE(file.bytes == long_);
  EXPECT_EQ(begin, 65536u);
}

TEST_F(WholeFileTest, IsLeftWhereItsBeginIsNotWanted) {
  const auto refuse = [](const std::string&) { return false; };
  EXPECT_EQ(readWholeFile("/dev/zero", std::size_t{1} << 40, refuse).bytes.size(), 65536u);
  save("file", long_);
  EXPECT_EQ(readWholeFile(dir_.file("file"), long_.size(), refuse).bytes.size(), long_.size());
}

}  // namespace
}  // namespace namespace_ratseg
