#include "util/same_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

class SameFile : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return dir_.file(name); }
  void make(const std::string& name) const { std::ofstream(path(name)) << name; }
  void link(const std::string& target, const std::string& name) const {
    std::filesystem::create_symlink(target, path(name));
  }
  bool same(const std::string& a, const std::string& b) const {
    EXPECT_EQ(sameFile(path(a), path(b)), sameFile(path(b), path(a)));
    return sameFile(path(a), path(b));
  }

  const TempDir dir_;
};

TEST_F(SameFile, IsOneOfTheSameName) {
  EXPECT_TRUE(same("missing", "missing"));
  EXPECT_FALSE(same("missing", "other"));
  make("there");
  make("other");
  EXPECT_TRUE(same("there", "there"));
  EXPECT_FALSE(same("there", "other"));
  EXPECT_FALSE(same("there", "missing"));
  EXPECT_FALSE(same("there", "There"));
}

TEST_F(SameFile, MayBeSpelledDifferently) {
  std::filesystem::create_directory(path("a"));
  for (const std::string file : {"there", "missing"}) {
    if (file == "there") make(file);
    EXPECT_TRUE(same(file, "./" + file));
    EXPECT_TRUE(same(file, "a/../" + file));
    EXPECT_TRUE(same(file, ".//" + file));
    EXPECT_TRUE(same(file, "no-folder/../" + file));
    EXPECT_FALSE(same(file, "a/" + file));
  }
}

TEST_F(SameFile, MayBeNamedFromTheCurrentFolder) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(dir_.path());
  EXPECT_TRUE(sameFile("missing", path("missing")));
  EXPECT_TRUE(sameFile("missing", "./missing"));
  EXPECT_FALSE(sameFile("missing", path("other")));
  std::filesystem::current_path(before);
}

TEST_F(SameFile, IsFoundThroughLinks) {
  make("there");
  link("there", "link");
  link("link", "link-to-link");
  std::filesystem::create_hard_link(path("there"), path("hard"));
  EXPECT_TRUE(same("there", "link"));
  EXPECT_TRUE(same("hard", "link-to-link"));
  EXPECT_TRUE(same("there", "hard"));
}

TEST_F(SameFile, IsFoundThroughLinksThatLeadNowhereYet) {
  link("missing", "link");
  link("./link", "link-to-link");
  link(path("missing"), "absolute");
  EXPECT_TRUE(same("missing", "link"));
  EXPECT_TRUE(same("missing", "link-to-link"));
  EXPECT_TRUE(same("absolute", "link"));
  EXPECT_FALSE(same("other", "link"));
  std::filesystem::create_directory(path("a"));
  link("../missing", "a/up");
  EXPECT_TRUE(same("missing", "a/up"));
  link("a", "folder");
  EXPECT_TRUE(same("a/new", "folder/new"));
  EXPECT_TRUE(same("missing", "folder/up"));
}

TEST_F(SameFile, LinksInACircleEnd) {
  link("b", "a");
  link("a", "b");
  EXPECT_FALSE(same("a", "other"));
}

TEST_F(SameFile, NoNameIsThatOfAFile) {
  EXPECT_FALSE(sameFile("", ""));
  EXPECT_FALSE(sameFile("", path("x")));
}

}  // namespace
}  // namespace namespace_ratseg
