#include "util/file_replacement.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

class FileReplacementTest : public testing::Test {
 protected:
  static void write(const std::string& file, const std::string& text) {
    std::ofstream(file) << text;
  }
  static std::string read(const std::string& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
  }
  std::size_t files() const {
    const auto all = std::filesystem::directory_iterator(dir_.path());
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }
  TempDir dir_;
  std::string file_ = dir_.file("result");
};

TEST_F(FileReplacementTest, TheOldFileStaysUntilTheNewOneIsComplete) {
  write(file_, "old");
  {
    FileReplacement replacement(file_);
    EXPECT_NE(replacement.path(), file_);
    write(replacement.path(), "new");
    EXPECT_EQ(read(file_), "old");
    EXPECT_TRUE(replacement.finish());
    EXPECT_EQ(read(file_), "new");
  }
  EXPECT_EQ(read(file_), "new");
  EXPECT_EQ(files(), 1u);
}

TEST_F(FileReplacementTest, OneThatIsNotFinishedLeavesNothingBehind) {
  { FileReplacement replacement(file_); }
  EXPECT_EQ(files(), 0u);
  write(file_, "old");
  {
    FileReplacement replacement(file_);
    write(replacement.path(), "ne");
  }
  EXPECT_EQ(read(file_), "old");
  EXPECT_EQ(files(), 1u);
}

TEST_F(FileReplacementTest, HasThePermissionsOfTheOldFile) {
  write(file_, "old");
  chmod(file_.c_str(), 0640);
  FileReplacement replacement(file_);
  ASSERT_TRUE(replacement.finish());
  struct stat now;
  ASSERT_EQ(stat(file_.c_str(), &now), 0);
  EXPECT_EQ(now.st_mode & 07777, 0640u);
}

TEST_F(FileReplacementTest, LinksDevicesAndMissingFoldersAreWrittenThemselves) {
  write(file_, "old");
  const std::string link = dir_.file("link");
  ASSERT_EQ(symlink(file_.c_str(), link.c_str()), 0);
  for (const std::string& name : {link, std::string("/dev/null"), dir_.file("missing/result")}) {
    errno = 0;
    FileReplacement replacement(name);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(replacement.path(), name);
    EXPECT_TRUE(replacement.finish());
  }
  EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(FileReplacementTest, SaysWhyTheFileCannotBePutIntoItsPlace) {
  FileReplacement replacement(file_);
  std::filesystem::create_directory(file_);
  errno = 0;
  EXPECT_FALSE(replacement.finish());
  EXPECT_EQ(errno, EISDIR);
}

TEST(TextOfErrno, IsTheSystemsWordsOrNothing) {
  EXPECT_EQ(textOfErrno(ENOSPC), "No space left on device");
  EXPECT_EQ(textOfErrno(0), "");
}

}  // namespace
}  // namespace namespace_ratseg
