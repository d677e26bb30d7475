// Every message and exit status of the program.

#include <sys/stat.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <thread>

#include "app/ratseg_program.h"

namespace namespace_ratseg {
namespace {

class RatsegMessages : public RatsegProgram {
 protected:
  // Runs with the changes and expects status 1 and, after the whole echo, these lines.
  void expectFailure(const Changes& changes, const std::string& lines) const {
    const ProgramResult result = run(changes);
    EXPECT_EQ(result.out, wholeEcho() + lines);
    EXPECT_EQ(result.status, 1);
  }

  // The lines that follow the echo of a run that fails when the data term is loaded.
  static std::string loadedLines() {
    return "Image to segment: image.png (12 x 8)\n"
           "Labels: 4 (foreground labels: 0, 1, 2; background label: 3)\n"
           "Proportions: proportions.txt\n"
           "  ratios for fg label 0:  mean=0.330000   sigma=0.100000\n"
           "  ratios for fg label 1:  mean=0.330000   sigma=0.200000\n"
           "  ratios for fg label 2:  mean=0.340000   sigma=0.300000\n";
  }
};

constexpr const char* kNoDevice = "ERROR: No CUDA devices found (or CUDA not installed)\n";

TEST_F(RatsegMessages, WithoutADeviceEndItBeforeEverythingElse) {
  program_.environment["RATSEG_HOST_DEVICES"] = "0";
  for (const auto& words : {std::vector<std::string>{}, {"-image", "image.png"}, commandLine()}) {
    const ProgramResult result = runWords(words);
    EXPECT_EQ(result.out, kNoDevice);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 1);
  }
}

TEST_F(RatsegMessages, WithoutArgumentsAreTheUsageScreen) {
  const ProgramResult result = runWords({});
  EXPECT_EQ(result.out, R"(Possible params:
-image <filename>
    Image to segment
    --- Required ---
-dataterm <filename>
    Dataterm file (packed with zlib)
    --- Required ---
-proportions <filename>
    Mean/sigma for the proportions, see (9) in the paper
    File format must be as follows:
        mean_for_ratios_of_foreground_label_0   sigma_for_ratios_of_foreground_label_0
        mean_for_ratios_of_foreground_label_1   sigma_for_ratios_of_foreground_label_1
        etc. for all foreground labels
    --- Required ---
-lambda <float>
    Lambda: Weight for length regularization term, typical range is 5-15, see (5) in the paper
    --- Required ---
-mu <float>
    Mu: Weight for proportion prior term, typical range is 200-1000, see (12) in the paper
    --- Required ---
-epsilon <float>
    Epsilon: A parameter for the proportion prior term, see (12) in the paper
    Default: 10
-iterations <int>
    Number of iterations
    Default: 10000
-weightcoeff <float>
    Gamma: The parameter in the weighting w(x) = exp(-gamma*|grad InputImage(x)|) for local length regularization, see paper between (14) and (15)
    Default: 5
-outprefix <string>
    Output prefix: E.g. the result labeling will be saved as "${outprefix}_result_labeling.gz"
    Default: out
-gpu <int>
    GPU to use
    Default: 0
)");
  EXPECT_EQ(
      result.err,
      "Also: -device auto|cuda|host\n"
      "    Compute on CUDA GPUs, on the host, or on the host when there is no GPU (auto)\n"
      "    Default: auto\n"
      "-timing 0|1\n"
      "    Report the seconds of each stage on standard error\n"
      "    Default: 0\n"
      "-tolerance <float>\n"
      "    Stop when the labeling is certified to be this close to the optimum, after at "
      "most\n"
      "    -iterations; report energies and gap on standard error\n"
      "    Default: 0\n"
      "-accelerate 0|1\n"
      "    Take an exact step of the proportions: the same optimum in fewer iterations. Give\n"
      "    -tolerance as well, to stop when it is reached\n"
      "    Default: 0\n"
      "-strict 0|1\n"
      "    Take warnings as errors: end before the computation where there are any, and with "
      "status\n"
      "    1 where there are any after it\n"
      "    Default: 0\n"
      "-progress 0|1\n"
      "    Show on standard error how far the iteration is: in a line that is rewritten on a\n"
      "    terminal, in one every 10 seconds elsewhere\n"
      "    Default: 1 on a terminal, for runs of more than 2 seconds; otherwise 0\n"
      "-max-megapixels <float>\n"
      "    Refuse images of more pixels, in millions, before they are decoded\n"
      "    Default: 150\n"
      "-max-memory <float>\n"
      "    Refuse images and runs on the host that are estimated to need more memory, in GiB\n"
      "    Default: what is available, of which runs are only warned\n"
      "-version alone prints the version and what the program was built with\n");
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegMessages, WithoutArgumentsAreTheUsageScreenAlsoWithAnOptionFile) {
  saveText("ratseg.cfg", "image image.png\n");
  const ProgramResult result = runWords({});
  EXPECT_TRUE(result.out.starts_with("Possible params:\n-image <filename>\n"));
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegMessages, HelpIsTheUsageScreen) {
  const std::string usage = runWords({}).out;
  for (const char* word : {"-help", "--help"}) {
    const ProgramResult result = runWords({word});
    EXPECT_EQ(result.out, usage);
    EXPECT_EQ(result.status, 0);
  }
  EXPECT_NE(runWords({"-help", "-image"}).out, usage);
}

// One required option after the other; those that come later are not named in the same run.
TEST_F(RatsegMessages, NameTheFirstMissingRequiredOption) {
  const std::vector<std::pair<std::string, std::string>> lines = {
      {"-image", "ERROR: Expected -image <filename>\n    Image to segment\n"},
      {"-dataterm", "ERROR: Expected -dataterm <filename>\n    Dataterm file (packed with zlib)\n"},
      {"-proportions",
       "ERROR: Expected -proportions <filename>\n"
       "    Mean/sigma for the proportions, see (9) in the paper\n"
       "    File format must be as follows:\n"
       "        mean_for_ratios_of_foreground_label_0   sigma_for_ratios_of_foreground_label_0\n"
       "        mean_for_ratios_of_foreground_label_1   sigma_for_ratios_of_foreground_label_1\n"
       "        etc. for all foreground labels\n"},
      {"-lambda",
       "ERROR: Expected -lambda <float>\n"
       "    Lambda: Weight for length regularization term, typical range is 5-15, see (5) in the "
       "paper\n"},
      {"-mu",
       "ERROR: Expected -mu <float>\n"
       "    Mu: Weight for proportion prior term, typical range is 200-1000, see (12) in the "
       "paper\n"}};
  for (std::size_t first = 0; first < lines.size(); ++first) {
    SCOPED_TRACE(lines[first].first);
    Changes missing;
    for (std::size_t i = first; i < lines.size(); ++i) missing[lines[i].first] = "none";
    const ProgramResult all = run(missing);
    const ProgramResult one = run({{lines[first].first, "none"}});
    EXPECT_EQ(all.out, echoUpTo(lines[first].first) + lines[first].second);
    EXPECT_EQ(one.out, all.out);
    EXPECT_EQ(all.status, 1);
    EXPECT_EQ(one.status, 1);
  }
}

TEST_F(RatsegMessages, TellAnImageThatCannotBeLoaded) {
  saveText("text.png", "no image");
  saveText("empty.png", "");
  std::filesystem::create_directory(dir_.file("folder"));
  for (const char* file : {"missing.png", "text.png", "empty.png", "folder"}) {
    SCOPED_TRACE(file);
    const ProgramResult result = run({{"-image", file}});
    EXPECT_EQ(fromLine(result.out, "    GPU to use"),
              std::string("    GPU to use\nERROR loading image to segment: ") + file + "\n");
    EXPECT_EQ(result.status, 1);
  }
}

// Every input is wrong; the next run has one of them put right.
TEST_F(RatsegMessages, TellTheFirstInputThatCannotBeLoadedImageProportionsDataterm) {
  Changes wrong = {{"-image", "no.png"}, {"-dataterm", "no.gz"}, {"-proportions", "no.txt"}};
  const auto lastLine = [&] {
    const std::string out = run(wrong).out;
    return out.substr(out.rfind('\n', out.size() - 2) + 1);
  };
  EXPECT_EQ(lastLine(), "ERROR loading image to segment: no.png\n");
  wrong["-image"] = "image.png";
  EXPECT_EQ(lastLine(), "ERROR opening proportions file no.txt\n");
  wrong["-proportions"] = "proportions.txt";
  EXPECT_EQ(lastLine(), "ERROR loading dataterm no.gz\n");
}

TEST_F(RatsegMessages, TellAnImageOptionWithoutValueAsAnImageThatCannotBeLoaded) {
  const ProgramResult result = run({{"-image", ""}});
  EXPECT_TRUE(result.out.starts_with("Params: \n-image \n    Image to segment\n-dataterm "));
  EXPECT_TRUE(result.out.ends_with("\nERROR loading image to segment: \n"));
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegMessages, TellAProportionsFileThatCannotBeOpened) {
  const ProgramResult result = run({{"-proportions", "missing.txt"}});
  EXPECT_EQ(fromLine(result.out, "Image to segment"),
            "Image to segment: image.png (12 x 8)\n"
            "ERROR opening proportions file missing.txt\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegMessages, TellAMeanWithoutSigma) {
  saveText("proportions.txt", "0.3 0.1 0.5");
  expectFailure({},
                "Image to segment: image.png (12 x 8)\n"
                "ERROR reading proportions file proportions.txt: no sigma given for label 1\n");
  saveText("proportions.txt", "0.3 sigma");
  expectFailure({},
                "Image to segment: image.png (12 x 8)\n"
                "ERROR reading proportions file proportions.txt: no sigma given for label 0\n");
}

TEST_F(RatsegMessages, TellAProportionsFileWithoutNumbers) {
  const std::string zeroByte("\0 0.3 0.1", 9);
  for (const std::string& text :
       {std::string(), std::string(" \n\n"), std::string("mean sigma\n0.3 0.1\n"), zeroByte}) {
    SCOPED_TRACE(text);
    saveText("proportions.txt", text);
    expectFailure({},
                  "Image to segment: image.png (12 x 8)\n"
                  "ERROR reading proportions file proportions.txt: no data found\n");
  }
}

TEST_F(RatsegMessages, TellAProportionsFileWithoutAnEndAsOneWithoutNumbers) {
  const ProgramResult result = run({{"-proportions", "/dev/zero"}});
  EXPECT_TRUE(result.out.ends_with("\nERROR reading proportions file /dev/zero: no data found\n"));
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegMessages, TellProportionsWithoutAnEnd) {
  ASSERT_EQ(mkfifo(dir_.file("pipe").c_str(), 0600), 0);
  const auto before = signal(SIGPIPE, SIG_IGN);
  std::thread writer([&] {
    std::ofstream pipe(dir_.file("pipe"));
    for (std::size_t bytes = 0; pipe && bytes < (std::size_t{64} << 20); bytes += 1000) {
      pipe << std::string(1000, ' ') << std::flush;
    }
    EXPECT_FALSE(pipe) << "64 MiB were read";
  });
  const ProgramResult result = run({{"-proportions", "pipe"}});
  writer.join();
  signal(SIGPIPE, before);
  EXPECT_TRUE(result.out.ends_with(
      "\nERROR reading proportions file pipe: more than 16777216 bytes of text\n"))
      << result.out;
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegMessages, TakeProportionsFromAPipe) {
  ASSERT_EQ(mkfifo(dir_.file("pipe").c_str(), 0600), 0);
  std::thread writer([&] { std::ofstream(dir_.file("pipe")) << FourLabels::proportions; });
  const ProgramResult result = run({{"-proportions", "pipe"}});
  writer.join();
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegMessages, TellAProportionsFolder) {
  std::filesystem::create_directory(dir_.file("folder"));
  const ProgramResult result = run({{"-proportions", "folder"}});
  EXPECT_TRUE(result.out.ends_with("\nERROR reading proportions file folder: no data found\n"));
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegMessages, TellADatatermThatCannotBeLoaded) {
  const ProgramResult result = run({{"-dataterm", "missing.gz"}});
  EXPECT_EQ(fromLine(result.out, "Image to segment"),
            loadedLines() + "ERROR loading dataterm missing.gz\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegMessages, TellADatatermOfOneLabelTooManyWithBothCounts) {
  saveDataterm("dataterm.gz", FourLabels::dataterm(5));
  expectFailure({}, loadedLines() +
                        "ERROR (FileIO::loadArray()): Number of elements in file = 480, but should "
                        "be 384\n"
                        "ERROR loading dataterm dataterm.gz\n");
}

TEST_F(RatsegMessages, TellADatatermWithoutTheBackgroundLabelWithBothCounts) {
  saveDataterm("dataterm.gz", std::vector<float>(3 * 96));
  expectFailure({}, loadedLines() +
                        "ERROR (FileIO::loadArray()): Number of elements in file = 288, but should "
                        "be 384\n"
                        "ERROR loading dataterm dataterm.gz\n");
}

TEST_F(RatsegMessages, TellADatatermWithoutElements) {
  saveDataterm("dataterm.gz", {});
  expectFailure({}, loadedLines() +
                        "ERROR (File::loadArray()): No elements in file\n"
                        "ERROR loading dataterm dataterm.gz\n");
}

TEST_F(RatsegMessages, TellADamagedDataterm) {
  std::filesystem::resize_file(dir_.file("dataterm.gz"), 40);
  expectFailure({}, loadedLines() + "ERROR loading dataterm dataterm.gz\n");
  saveText("dataterm.gz", "");
  expectFailure({}, loadedLines() + "ERROR loading dataterm dataterm.gz\n");
}

TEST_F(RatsegMessages, TellASolverThatDoesNotFitIntoDeviceMemory) {
  program_.environment["RATSEG_HOST_MEMORY"] = "1";
  saveImage("image.png", blackImage(256, 256));
  saveText("proportions.txt", "1 0.1");
  saveDataterm("dataterm.gz", std::vector<float>(256 * 256 * 2));
  const ProgramResult result = run();
  EXPECT_EQ(fromLine(result.out, "Dataterm: "),
            "Dataterm: dataterm.gz\n"
            "Using: 0\n"
            "GPU memory needed: 3 MB\n"
            "ERROR: could not allocate solver\n");
  EXPECT_NE(result.err.find("ERROR: Insufficient GPU memory ("), std::string::npos) << result.err;
  EXPECT_TRUE(result.err.ends_with(
      "ratseg: warning: the host computes, and its memory does not suffice: about 7.0 MiB are "
      "needed\n"));
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegMessages, TellHostMemoryThatDoesNotHoldTheDataterm) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the address sanitizer needs the address space for itself";
#endif
  program_.addressSpace = std::size_t{3} << 30;
  saveImage("image.png", blackImage(1000, 1000));
  std::string pairs;
  for (int i = 0; i < 999; ++i) pairs += "0.001 1\n";
  saveText("proportions.txt", pairs);
  const ProgramResult result = run();
  EXPECT_TRUE(result.out.ends_with(
      "\nERROR: no memory for the data term of 1000 x 1000 pixels x 1000 labels\n"))
      << result.out;
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegMessages, TellAFolderThatResultsCannotBeSavedIn) {
  const ProgramResult result = run({{"-outprefix", "missing/out"}});
  EXPECT_EQ(withoutTime(fromLine(result.out, "Computation time: ")),
            "Computation time: T s\n"
            "ERROR saving missing/out_result_labeling.gz  (zlib-packed plain int array)\n"
            "ERROR saving missing/out_result_labeling.png\n"
            "ERROR saving missing/out_result_labeling_overlaid.png\n"
            "ERROR saving missing/out_regularizer_weight.png\n");
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegMessages, OfANotWritablePictureLeaveOutTheLegendAndSaveTheOthers) {
  std::filesystem::create_directory(dir_.file("out_result_labeling.png"));
  const ProgramResult result = run();
  EXPECT_EQ(fromLine(result.out, "Saved "),
            "Saved out_result_labeling.gz  (zlib-packed plain int array)\n"
            "ERROR saving out_result_labeling.png\n"
            "Saved out_result_labeling_overlaid.png\n"
            "Saved out_regularizer_weight.png\n");
  EXPECT_EQ(result.status, 0);
}

}  // namespace
}  // namespace namespace_ratseg
