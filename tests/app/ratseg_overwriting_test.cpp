// No result takes the place of an input.

#include <filesystem>

#include "app/ratseg_program.h"
#include "app/result_names.h"

namespace namespace_ratseg {
namespace {

class RatsegOverwriting : public RatsegProgram {
 protected:
  std::string text(const std::string& name) const {
    std::ifstream in(dir_.file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  // Moves a file of the problem to another name.
  void move(const std::string& from, const std::string& to) const {
    std::filesystem::rename(dir_.file(from), dir_.file(to));
  }

  // Expects that the run ends behind the echo with this line, and that the file keeps its bytes.
  void expectRefused(const Changes& changes, const std::string& file,
                     const std::string& line) const {
    const std::string before = text(file);
    const ProgramResult result = run(changes);
    EXPECT_EQ(fromLine(result.out, "    GPU to use"), "    GPU to use\nERROR: " + line +
                                                          ", which would be written over it; give "
                                                          "another -outprefix\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(text(file), before);
    EXPECT_NE(before, "");
  }
};

TEST_F(RatsegOverwriting, OfEachInputByEachResultIsRefused) {
  for (const auto& [option, file] : {std::pair<std::string, std::string>{"-image", "image.png"},
                                     {"-dataterm", "dataterm.gz"},
                                     {"-proportions", "proportions.txt"}}) {
    for (const std::string& result : resultFiles("out")) {
      SCOPED_TRACE(option + " " + result);
      move(file, result);
      expectRefused({{option, result}}, result,
                    option + " " + result + " is the same file as the result " + result);
      move(result, file);
    }
  }
}

TEST_F(RatsegOverwriting, IsRefusedHoweverTheNamesAreSpelled) {
  std::filesystem::create_directory(dir_.file("a"));
  move("image.png", "out_result_labeling.png");
  expectRefused({{"-image", "./out_result_labeling.png"}, {"-outprefix", "a/../out"}},
                "out_result_labeling.png",
                "-image ./out_result_labeling.png is the same file as the result "
                "a/../out_result_labeling.png");
}

TEST_F(RatsegOverwriting, ThroughLinksIsRefused) {
  std::filesystem::create_symlink("image.png", dir_.file("out_result_labeling.png"));
  expectRefused({}, "image.png",
                "-image image.png is the same file as the result out_result_labeling.png");
  std::filesystem::remove(dir_.file("out_result_labeling.png"));
  std::filesystem::create_hard_link(dir_.file("dataterm.gz"), dir_.file("out_result_labeling.gz"));
  expectRefused({}, "dataterm.gz",
                "-dataterm dataterm.gz is the same file as the result out_result_labeling.gz");
}

// Nothing is read: that the image is missing is not said.
TEST_F(RatsegOverwriting, IsRefusedFirst) {
  const ProgramResult result =
      run({{"-image", "missing.png"}, {"-dataterm", "out_regularizer_weight.png"}});
  EXPECT_TRUE(result.out.starts_with("Params: \n-image missing.png\n"));
  EXPECT_NE(result.out.find("ERROR: -dataterm out_regularizer_weight.png is the same file"),
            std::string::npos)
      << result.out;
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegOverwriting, OfOtherFilesIsUsual) {
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(run({{"-image", "out_result_labeling.png"}, {"-outprefix", "next"}}).status, 0);
}

TEST_F(RatsegOverwriting, LooksAtAllFilesThatAreWritten) {
  std::filesystem::create_directory(dir_.file("results"));
  ASSERT_EQ(run({{"-outprefix", "results/x"}}).status, 0);
  std::size_t written = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir_.file("results"))) {
    const std::string name = "results/" + entry.path().filename().string();
    std::size_t known = 0;
    for (const std::string& file : resultFiles("results/x")) known += file == name ? 1 : 0;
    EXPECT_EQ(known, 1u) << name;
    ++written;
  }
  EXPECT_EQ(written, 4u);
}

}  // namespace
}  // namespace namespace_ratseg
