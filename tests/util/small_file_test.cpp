#include "util/small_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

class SmallFile : public testing::Test {
 protected:
  std::string faultOf(const std::string& file, std::size_t limit) const {
    std::string text;
    std::string fault = "old";
    EXPECT_EQ(readSmallFile(file, limit, text, &fault), fault.empty());
    EXPECT_EQ(readSmallFile(file, limit, text), fault.empty());
    return fault;
  }

  const TempDir dir_;
  const std::string file_ = dir_.file("file");
};

TEST_F(SmallFile, IsReadWhole) {
  std::string bytes;
  for (int i = 0; i < 100000; ++i) bytes += static_cast<char>(i % 251);
  std::ofstream(file_, std::ios::binary) << bytes;
  std::string text = "old";
  EXPECT_TRUE(readSmallFile(file_, bytes.size(), text));
  EXPECT_EQ(text, bytes);
  EXPECT_EQ(faultOf(file_, bytes.size() - 1), "has more than 99999 bytes");
  std::ofstream(file_, std::ios::binary).flush();
  EXPECT_TRUE(readSmallFile(file_, 0, text));
  EXPECT_EQ(text, "");
}

TEST_F(SmallFile, IsNothingThatMustBeWaitedFor) {
  EXPECT_EQ(faultOf(file_, 10), "cannot be opened: No such file or directory");
  EXPECT_EQ(faultOf(dir_.path().string(), 10), "is a folder");
  EXPECT_EQ(faultOf("/dev/zero", 10), "is not a regular file");
  ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
  EXPECT_EQ(faultOf(file_, 10), "is not a regular file");
}

}  // namespace
}  // namespace namespace_ratseg
