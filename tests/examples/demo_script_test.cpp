// What scripts/demo.sh says before it builds or runs anything, and of a run with programs that are
// there already.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "app/dataterm/raw_png.h"
#include "support/program.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

class DemoScript : public testing::Test {
 protected:
  DemoScript() {
    program_.path = "/usr/bin/env";
    program_.folder = dir_.path().string();
  }

  ProgramResult run(const std::vector<std::string>& words) const {
    std::vector<std::string> all = {"bash", RATSEG_SCRIPTS_DIR "/demo.sh"};
    all.insert(all.end(), words.begin(), words.end());
    return program_.run(all);
  }
  void expectError(const std::vector<std::string>& words, const std::string& line) const {
    const ProgramResult result = run(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "ERROR: " + line + "\n");
  }

  const TempDir dir_;
  Program program_;
};

TEST_F(DemoScript, HelpListsItsOptions) {
  const ProgramResult result = run({"-help"});
  EXPECT_EQ(result.status, 0);
  for (const std::string option : {"-shares", "-lambda", "-mu", "-epsilon", "-spread", "-sigma",
                                   "-thr", "-tolerance", "-accelerate", "-iterations"}) {
    EXPECT_NE(result.out.find("\n" + option + " "), std::string::npos) << option;
  }
}

TEST_F(DemoScript, WrongOptions) {
  expectError({"-gamma", "5"}, "unknown option -gamma; see scripts/demo.sh -help");
  expectError({"-"}, "unknown option -; see scripts/demo.sh -help");
  expectError({"-mu"}, "-mu needs a value");
  expectError({"a", "b"}, "expected one folder, but found \"a\" and \"b\"");
}

TEST_F(DemoScript, FoldersWithoutPicturesOrScribbles) {
  expectError({"my pictures"}, "expected a folder, but found none at \"my pictures\"");
  std::filesystem::create_directory(dir_.file("my pictures"));
  const std::string folder = std::filesystem::canonical(dir_.file("my pictures")).string();
  expectError({"my pictures"}, "expected one file image.* in \"" + folder + "\", but found 0");
  std::ofstream(folder + "/image.tif");
  std::ofstream(folder + "/image.png");
  expectError({"my pictures"}, "expected one file image.* in \"" + folder + "\", but found 2");
  std::filesystem::remove(folder + "/image.png");
  expectError({"my pictures"}, "expected a file \"" + folder + "/scribbles.png\", but found none");
}

// A copy of the scripts beside the programs of this build, with tools that find nothing to build or
// to install, and a folder of pictures.
class DemoRun : public testing::Test {
 protected:
  DemoRun() {
    namespace fs = std::filesystem;
    const fs::path project = dir_.path() / "project";
    fs::create_directories(project / "build/release");
    fs::copy(RATSEG_SCRIPTS_DIR, project / "scripts");
    fs::create_directory_symlink(RATSEG_BIN_DIR, project / "build/release/bin");
    for (const std::string tool : {"cmake", "ninja", "g++", "apt-get"}) makeTool(tool, "");
    makeTool("dpkg-query", "echo -n installed\n");
    fs::create_directory(dir_.file("pictures"));
    saveGrey("image.png", {'\0', '\0', 'w', 'w', '\xff', '\xff'});
    saveGrey("scribbles.png", {1, 0, 2, 0, 3, 0});
    saveGrey("truth.png", {0, 0, 1, 1, 2, 2});
    program_.path = "/usr/bin/env";
    program_.folder = dir_.path().string();
    program_.environment = {{"PATH", dir_.file("tools") + ":/usr/bin:/bin"},
                            {"OMP_NUM_THREADS", "1"},
                            {"RATSEG_DEVICE", "host"}};
  }

  void makeTool(const std::string& name, const std::string& text) const {
    namespace fs = std::filesystem;
    fs::create_directories(dir_.file("tools"));
    const fs::path file = dir_.path() / "tools" / name;
    std::ofstream(file) << "#!/bin/sh\n" << text;
    fs::permissions(file, fs::perms::owner_all);
  }
  void saveGrey(const std::string& name, const std::string& row) const {
    const int w = static_cast<int>(row.size());
    RawPng{w, 1, 8, RawPng::kGrey, row, "", ""}.save(dir_.file("pictures/" + name));
  }

  ProgramResult run(const std::vector<std::string>& options,
                    const std::string& folder = "pictures") const {
    std::vector<std::string> words = {"bash", "project/scripts/demo.sh"};
    if (!folder.empty()) words.push_back(folder);
    words.insert(words.end(), {"-iterations", "10", "-model", "colour"});
    words.insert(words.end(), options.begin(), options.end());
    return program_.run(words);
  }
  // The line that names the folder of the results.
  std::string folderLine() const {
    const auto project = std::filesystem::canonical(dir_.path() / "project");
    return "Results go to " + (project / "demo-out/pictures").string() + "\n";
  }

  const TempDir dir_;
  Program program_;
};

TEST_F(DemoRun, NamesTheFolderOfItsResultsFirst) {
  const ProgramResult result = run({});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, folderLine());
  EXPECT_NE(result.out.find("with prior"), std::string::npos) << result.out;
}

TEST_F(DemoRun, LeavesThePriorOutWithoutSharesOrTruth) {
  std::filesystem::remove(dir_.file("pictures/truth.png"));
  const ProgramResult result = run({});
  EXPECT_EQ(result.status, 0);
  const std::string folder = std::filesystem::canonical(dir_.file("pictures")).string();
  EXPECT_EQ(result.err, folderLine() + "Without the prior only: " + folder +
                            " has neither proportions.txt nor truth.png\n");
  EXPECT_NE(result.out.find("without prior"), std::string::npos) << result.out;
  EXPECT_EQ(result.out.find("with prior"), std::string::npos) << result.out;
  EXPECT_EQ(result.out.find("accuracy"), std::string::npos) << result.out;
}

TEST_F(DemoRun, TakesTheSharesOfAFolderWithoutTruth) {
  std::filesystem::remove(dir_.file("pictures/truth.png"));
  std::ofstream(dir_.file("pictures/proportions.txt")) << "0.7 0.01\n0.3 0.01\n";
  const ProgramResult result = run({});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, folderLine());
  EXPECT_NE(result.out.find("with prior"), std::string::npos) << result.out;
  std::ifstream log(dir_.path() / "project/demo-out/pictures/with.log");
  const std::string text(std::istreambuf_iterator<char>(log), {});
  EXPECT_NE(text.find("        0.7        0.01"), std::string::npos) << text;
}

// Three runs of ratseg get the options; pixelwise does no iterations.
TEST_F(DemoRun, ShowsEachWarningOnce) {
  const ProgramResult result = run({"-lambda", "abc", "-iterations", "1e1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            folderLine() +
                "ratseg: warning: -lambda must be a number, but is \"abc\"; 0 is used\n"
                "ratseg: warning: -iterations must be a whole number from 0 on, but is \"1e1\"; 1 "
                "is used\n");
}

TEST_F(DemoRun, ShowsTheWarningsOfTheDataTerm) {
  saveGrey("scribbles.png", {1, 0, 3, 0, 3, 0});
  const ProgramResult result = run({});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.err.find("ratseg-dataterm: warning: label 1 has no scribbles in "),
            std::string::npos)
      << result.err;
}

TEST_F(DemoRun, EndsWithTheOutputOfARunThatFails) {
  const ProgramResult result = run({"-iterations", "-1"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("\nERROR: cannot run 18446744073709551615 iterations\n"),
            std::string::npos)
      << result.err;
  EXPECT_NE(result.err.find("\nERROR: this failed: "), std::string::npos) << result.err;
}

TEST_F(DemoRun, UsesThePicturesThatAreThereAsTheyAre) {
  namespace fs = std::filesystem;
  const fs::path out = dir_.path() / "project/demo-out";
  fs::create_directories(out);
  for (const char* file : {"image.png", "scribbles.png", "truth.png"}) {
    fs::copy_file(dir_.path() / "pictures" / file, out / file);
  }
  const auto size = fs::file_size(out / "scribbles.png");
  const ProgramResult result = run({}, "");
  const std::string name = fs::canonical(out).string();
  EXPECT_EQ(result.err,
            "Results go to " + name + "\nThe pictures in " + name + " are used as they are\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(fs::file_size(out / "scribbles.png"), size);

  // One of them is drawn again only where the others are those that belong to it.
  fs::remove(out / "image.png");
  const ProgramResult refused = run({}, "");
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(fs::file_size(out / "scribbles.png"), size);
  EXPECT_FALSE(fs::exists(out / "image.png"));
}

// Results of the run before are removed, folders of other runs are not.
TEST_F(DemoRun, LeavesFoldersNamedLikeItsResultsAlone) {
  namespace fs = std::filesystem;
  fs::rename(dir_.file("pictures"), dir_.file("with_a"));
  ASSERT_EQ(run({}, "with_a").status, 0);
  const fs::path out = dir_.path() / "project/demo-out";
  for (const char* file : {"image.png", "scribbles.png", "truth.png"}) {
    fs::copy_file(dir_.path() / "with_a" / file, out / file);
  }
  std::ofstream(out / "with_result_labeling.png") << "old";
  std::ofstream(out / "with_notes.txt") << "mine";
  EXPECT_EQ(run({}, "").status, 0);
  EXPECT_TRUE(fs::exists(out / "with_a/with_result_labeling.gz"));
  EXPECT_TRUE(fs::exists(out / "with_notes.txt"));
  EXPECT_GT(fs::file_size(out / "with_result_labeling.png"), 3u);
}

TEST_F(DemoRun, RefusesAFolderNamedLikeOneOfItsFiles) {
  namespace fs = std::filesystem;
  for (const std::string name :
       {"image.png", "dataterm.gz", "with.log", "sheet.png", "without_result_labeling.gz"}) {
    fs::copy(dir_.file("pictures"), dir_.file(name), fs::copy_options::recursive);
    const ProgramResult result = run({}, name);
    EXPECT_EQ(result.err, "ERROR: expected a folder of another name: \"" + name +
                              "\" in demo-out is for a file of the demo itself\n");
    EXPECT_EQ(result.status, 1);
  }
}

}  // namespace
}  // namespace namespace_ratseg
