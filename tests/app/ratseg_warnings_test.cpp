// What the program says on standard error about inputs that make little sense. Standard output and
// the course of the run stay as they are.

#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <thread>

#include "app/ratseg_program.h"
#include "support/turned_photo.h"

namespace namespace_ratseg {
namespace {

const std::string kMustHold =
    "the data term must be a packed array of floats for 12 x 8 pixels x 4 labels, the background "
    "label included (one label more than the proportions file has)";

class RatsegWarnings : public RatsegProgram {
 protected:
  // What is in a gzip file.
  std::string unpacked(const std::string& name) const {
    std::string bytes(10000, '\0');
    gzFile file = gzopen(dir_.file(name).c_str(), "rb");
    const int read = gzread(file, bytes.data(), static_cast<unsigned>(bytes.size()));
    gzclose(file);
    return bytes.substr(0, static_cast<std::size_t>(read));
  }

  // Runs with the changes and expects exactly these lines on standard error, repeated ones apart.
  ProgramResult expectWarnings(const Changes& changes, const std::vector<std::string>& lines,
                               int status = 0) const {
    std::string err;
    for (const std::string& line : lines) err += "ratseg: warning: " + line + "\n";
    ProgramResult result = run(changes);
    EXPECT_EQ(withoutRepeats(withoutShares(result.err)), err);
    EXPECT_EQ(result.status, status);
    return result;
  }

  void expectEcho(const ProgramResult& result, const std::string& line) const {
    EXPECT_NE(result.out.find("\n" + line + "\n"), std::string::npos) << result.out;
  }
};

TEST_F(RatsegWarnings, TellValuesThatAreNoNumbers) {
  expectEcho(expectWarnings({{"-lambda", "five"}},
                            {"-lambda must be a number, but is \"five\"; 0 is used"}),
             "-lambda 0");
  expectEcho(expectWarnings({{"-mu", "nan"}}, {"-mu must be a number, but is \"nan\"; 0 is used"}),
             "-mu 0");
  expectEcho(expectWarnings({{"-mu", "2,5"}}, {"-mu must be a number, but is \"2,5\"; 2 is used"}),
             "-mu 2");
  expectEcho(expectWarnings({{"-epsilon", "1e99"}},
                            {"-epsilon must be a number, but is \"1e99\"; 3.40282e+38 is used"}),
             "-epsilon 3.40282e+38");
  expectEcho(
      expectWarnings({{"-iterations", "2.5"}},
                     {"-iterations must be a whole number from 0 on, but is \"2.5\"; 2 is used"}),
      "-iterations 2");
  expectEcho(expectWarnings({{"-gpu", "first"}},
                            {"-gpu must be a whole number, but is \"first\"; 0 is used"}),
             "-gpu 0");
}

TEST_F(RatsegWarnings, NegativeIterationsEndTheRun) {
  std::vector<std::string> words = commandLine();
  words.insert(words.end(), {"-iterations", "-5"});
  const ProgramResult result = runWords(words);
  EXPECT_EQ(result.err,
            "ratseg: warning: -iterations must be a whole number from 0 on, but is \"-5\"; "
            "18446744073709551611 is used\n");
  EXPECT_TRUE(result.out.ends_with("\nERROR: cannot run 18446744073709551611 iterations\n"));
  EXPECT_EQ(result.status, 1);
  expectEcho(result, "-iterations 18446744073709551611");
}

TEST_F(RatsegWarnings, TellNumbersOfTheWrongSign) {
  expectWarnings({{"-lambda", "-5"}, {"-iterations", "1"}}, {"-lambda should not be negative"});
  expectWarnings({{"-epsilon", "0"}, {"-iterations", "1"}}, {"-epsilon should be positive"});
}

TEST_F(RatsegWarnings, TellOptionsWithoutOrWithSeveralValues) {
  expectEcho(expectWarnings({{"-lambda", ""}}, {"-lambda has no value; 0 is used"}), "-lambda 0");
  expectEcho(expectWarnings({{"-mu", ""}}, {"-mu has no value; 0 is used"}), "-mu 0");
  expectEcho(expectWarnings({{"-outprefix", ""}}, {"-outprefix has no value; \"out\" is used"}),
             "-outprefix out");
  EXPECT_EQ(runWords({"-image"}).err,
            "ratseg: warning: -image has no value\n"
            "ratseg: -help lists all options\n");
  std::vector<std::string> words = commandLine();
  words.insert(words.end(), {"-outprefix", "my", "results"});
  EXPECT_EQ(withoutRepeats(withoutShares(runWords(words).err)),
            "ratseg: warning: -outprefix has 2 values; only the first is used\n");
}

TEST_F(RatsegWarnings, TellUnknownOptions) {
  const ProgramResult result =
      expectWarnings({{"-iteration", "100"}}, {"unknown option \"-iteration\" is ignored"});
  EXPECT_EQ(withoutTime(result.out), withoutTime(run().out));
}

TEST_F(RatsegWarnings, TellAFolderThatResultsCannotBeSavedInBeforeTheRun) {
  const std::string missing = (dir_.path() / "missing").string();
  const auto expect = [&](const std::string& reason) {
    std::vector<std::string> lines = {"results cannot be saved in the folder \"" + missing +
                                      "\": " + reason};
    for (const char* file : {"result_labeling.gz", "result_labeling.png",
                             "result_labeling_overlaid.png", "regularizer_weight.png"}) {
      lines.push_back("\"missing/out_" + std::string(file) + "\" cannot be saved: " + reason);
    }
    expectWarnings({{"-outprefix", "missing/out"}}, lines);
  };
  expect("No such file or directory");
  saveText("missing", "a file");
  expect("Not a directory");
}

TEST_F(RatsegWarnings, TellFilesThatCannotBeRead) {
  std::filesystem::create_directory(dir_.file("folder"));
  expectWarnings({{"-image", "missing"}}, {"\"missing\": No such file or directory"}, 1);
  expectWarnings({{"-image", "folder"}}, {"\"folder\" is a folder"}, 1);
  expectWarnings({{"-proportions", "missing"}}, {"\"missing\": No such file or directory"}, 1);
  expectWarnings({{"-proportions", "folder"}}, {"\"folder\" is a folder"}, 1);
  expectWarnings({{"-dataterm", "missing"}}, {"\"missing\": No such file or directory"}, 1);
  expectWarnings({{"-dataterm", "folder"}}, {"\"folder\" is a folder"}, 1);
}

TEST_F(RatsegWarnings, TellImagesThatAreNoneOrDamaged) {
  saveText("text.png", "no image");
  expectWarnings({{"-image", "text.png"}},
                 {"\"text.png\" is not an image of a format that can be read"}, 1);
  std::filesystem::resize_file(dir_.file("image.png"), 60);
  const ProgramResult result =
      expectWarnings({}, {"\"image.png\" ends early: 0 of 8 rows are there"}, 1);
  EXPECT_TRUE(result.out.ends_with("\nERROR loading image to segment: image.png\n"));
}

TEST_F(RatsegWarnings, TellAnImageThatAsksToBeTurned) {
  saveTurnedPhoto(FourLabels::image(), dir_.file("photo.jpg"));
  const ProgramResult result = expectWarnings(
      {{"-image", "photo.jpg"}},
      {"\"photo.jpg\" asks to be shown turned or mirrored (EXIF orientation); its pixels are used "
       "as stored"});
  expectEcho(result, "Image to segment: photo.jpg (12 x 8)");
}

TEST_F(RatsegWarnings, TellAnImageOf16BitsWithSmallValues) {
  QImage image(FourLabels::w, FourLabels::h, QImage::Format_Grayscale16);
  const auto fill = [&](int greatest) {
    for (int y = 0; y < image.height(); ++y) {
      auto* row = reinterpret_cast<std::uint16_t*>(image.scanLine(y));
      std::fill_n(row, image.width(), static_cast<std::uint16_t>(greatest));
    }
    saveImage("image.png", image);
  };
  const std::string warning = " of 256 are left in 8 bits; stretch its values to 65535 first";
  const std::string begin = "\"image.png\" has 16 bits per channel, but only small values: ";
  fill(4095);
  expectWarnings({}, {begin + "17 levels" + warning});
  fill(0);
  expectWarnings({}, {begin + "1 level" + warning});
  fill(63 * 257);
  expectWarnings({}, {begin + "64 levels" + warning});
  fill(64 * 257);
  expectWarnings({}, {});
  saveImage("image.png", blackImage(FourLabels::w, FourLabels::h));
  expectWarnings({}, {});
}

TEST_F(RatsegWarnings, TellADatatermOfLongerNumbersThanFloats) {
  const std::vector<float> rho = FourLabels::dataterm();
  writePackedArray(dir_.file("dataterm.gz"), std::vector<double>(rho.begin(), rho.end()));
  const ProgramResult doubles = expectWarnings(
      {},
      {"\"dataterm.gz\" holds 8 bytes for each of its 384 numbers, as float64 has; the data term "
       "must be a packed array of floats of 4 bytes"},
      1);
  EXPECT_TRUE(doubles.out.ends_with("\nERROR loading dataterm dataterm.gz\n"));
  const std::string twice = unpacked("dataterm.gz");
  for (const std::size_t bytes : {twice.size() - 1, twice.size() + 1}) {
    std::string other = twice;
    other.resize(bytes);
    saveText("dataterm.gz", other);
    const ProgramResult result = expectWarnings(
        {},
        {"\"dataterm.gz\" holds more bytes than its 384 floats of 4 bytes; the rest is ignored"});
    expectEcho(result, "Dataterm: dataterm.gz");
  }
}

TEST_F(RatsegWarnings, TellADatatermOfIntegers) {
  std::vector<int> costs(384);
  for (std::size_t k = 0; k < costs.size(); ++k) costs[k] = static_cast<int>(k % 10);
  writePackedArray(dir_.file("dataterm.gz"), costs);
  expectWarnings({}, {"\"dataterm.gz\" holds no cost of 1e-30 or more: integers instead of floats "
                      "are the usual reason"});
  saveDataterm("dataterm.gz", std::vector<float>(384));
  expectWarnings({}, {});
  std::vector<float> one(384);
  one.back() = -1e-30f;
  saveDataterm("dataterm.gz", one);
  expectWarnings({}, {});
}

TEST_F(RatsegWarnings, TellWhatADatatermMustHold) {
  saveDataterm("dataterm.gz", FourLabels::dataterm(5));
  expectWarnings({}, {"\"dataterm.gz\" holds 5 labels for 96 pixels; " + kMustHold}, 1);
  saveDataterm("dataterm.gz", std::vector<float>(385));
  expectWarnings({}, {kMustHold}, 1);
}

TEST_F(RatsegWarnings, TellADatatermWithoutTheNumberOfItsElements) {
  gzFile file = gzopen(dir_.file("dataterm.gz").c_str(), "wb");
  const std::vector<float> rho = FourLabels::dataterm();
  gzwrite(file, rho.data(), static_cast<unsigned>(rho.size() * sizeof(float)));
  gzclose(file);
  expectWarnings(
      {}, {"\"dataterm.gz\" does not begin with the number of elements (8 bytes); " + kMustHold},
      1);
}

TEST_F(RatsegWarnings, TellADatatermThatIsNoGzipFile) {
  saveText("dataterm.gz", "\x93NUMPY is no gzip file");
  expectWarnings({}, {"\"dataterm.gz\" is not a gzip file; " + kMustHold}, 1);
}

TEST_F(RatsegWarnings, TellADatatermThatEndsEarly) {
  const std::string whole = unpacked("dataterm.gz");
  ASSERT_EQ(whole.size(), 8u + 4 * 384);
  const auto line = [](std::size_t found) {
    return "\"dataterm.gz\" ends early: found " + std::to_string(found) + " of 1544 bytes; " +
           kMustHold;
  };
  for (const std::size_t bytes : {1543, 1000, 7, 0}) {
    saveText("dataterm.gz", whole.substr(0, bytes));
    expectWarnings({}, {line(bytes)}, 1);
    gzFile packed = gzopen(dir_.file("dataterm.gz").c_str(), "wb1");
    gzwrite(packed, whole.data(), static_cast<unsigned>(bytes));
    gzclose(packed);
    expectWarnings({}, {line(bytes)}, 1);
  }
  saveDataterm("dataterm.gz", FourLabels::dataterm());
  std::filesystem::resize_file(dir_.file("dataterm.gz"), 5);
  expectWarnings({}, {line(0)}, 1);
}

TEST_F(RatsegWarnings, TellADamagedDataterm) {
  std::fstream file(dir_.file("dataterm.gz"), std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(-8, std::ios::end);
  file << "abcd";
  file.close();
  expectWarnings({}, {"\"dataterm.gz\" is damaged: incorrect data check; " + kMustHold}, 1);
}

TEST_F(RatsegWarnings, TellADatatermWithoutItsChecksum) {
  const auto size = std::filesystem::file_size(dir_.file("dataterm.gz"));
  for (const std::size_t missing : {1, 4, 8}) {
    std::filesystem::resize_file(dir_.file("dataterm.gz"), size - missing);
    expectWarnings({}, {"\"dataterm.gz\" ends early: its checksum is missing; " + kMustHold}, 1);
  }
}

// It is there no longer when it could be looked at again.
TEST_F(RatsegWarnings, TellADatatermFromAPipeWhatItMustHold) {
  ASSERT_EQ(mkfifo(dir_.file("pipe").c_str(), 0600), 0);
  std::thread writer([&] { std::ofstream(dir_.file("pipe")) << "no data term"; });
  expectWarnings({{"-dataterm", "pipe"}}, {kMustHold}, 1);
  writer.join();
}

TEST_F(RatsegWarnings, TellWhereReadingOfProportionsStopped) {
  saveText("proportions.txt", "0.33 0.1 0.33 0.1 0.34 0.1\nend 1\n");
  expectWarnings({}, {"\"proportions.txt\": reading stopped at \"end\", which is not a number, "
                      "after 3 labels"});
  saveText("proportions.txt", "0.3,0.1\n");
  expectWarnings({},
                 {"\"proportions.txt\": reading stopped at \",0.1\", which is not a number, in the "
                  "sigma of label 0"},
                 1);
  saveText("proportions.txt", std::string("0.33 0.1 0.33 0.1 0.34 0.1\0", 27));
  expectWarnings({}, {"\"proportions.txt\": reading stopped at \"?\", which is not a number, after "
                      "3 labels"});
  saveText("proportions.txt", "nan 0.1\n");
  expectWarnings({},
                 {"\"proportions.txt\": reading stopped at \"nan\", which is not a number, after 0 "
                  "labels"},
                 1);
}

TEST_F(RatsegWarnings, TellProportionsWithoutSense) {
  saveText("proportions.txt", "-0.5 0.1 1.5 0 0 -2");
  expectWarnings({}, {"\"proportions.txt\": mean -0.5 of label 0 is not from 0 to 1",
                      "\"proportions.txt\": mean 1.5 of label 1 is not from 0 to 1",
                      "\"proportions.txt\": sigma 0 of label 1 makes its share strict",
                      "\"proportions.txt\": sigma -2 of label 2 is negative; it counts as 2"});
  saveText("proportions.txt", "40 2 60.5 2 0.1 2");
  expectWarnings({},
                 {"\"proportions.txt\": mean 40 of label 0 is not from 0 to 1; 40 % is 0.4",
                  "\"proportions.txt\": mean 60.5 of label 1 is not from 0 to 1; 60.5 % is 0.605",
                  "\"proportions.txt\": the means sum to 100.6; they are shares of the "
                  "foreground and should sum to 1"});
  saveText("proportions.txt", "0.1 0.1 0.1 0.1 0.2 0.1");
  expectWarnings({}, {"\"proportions.txt\": the means sum to 0.4; they are shares of the "
                      "foreground and should sum to 1"});
  saveText("proportions.txt", "0.3 0.1 0.3 0.1 0.34 0.1");
  expectWarnings({}, {"\"proportions.txt\": the means sum to 0.94; they are shares of the "
                      "foreground and should sum to 1"});
  saveText("proportions.txt", "0.3 0.1 0.3 0.1 0.36 0.1");
  expectWarnings({}, {});
}

TEST_F(RatsegWarnings, TellASingleForegroundLabel) {
  saveText("proportions.txt", "0.3 0.1");
  saveDataterm("dataterm.gz", std::vector<float>(2 * 96));
  expectWarnings({}, {"\"proportions.txt\": with a single foreground label the proportions have no "
                      "effect"});
}

TEST_F(RatsegWarnings, TellTheGammaThatANegativeWeightCoefficientBecomes) {
  QImage image(2, 1, QImage::Format_RGB32);
  image.setPixel(0, 0, qRgb(0, 0, 0));
  image.setPixel(1, 0, qRgb(0, 255, 0));
  saveImage("image.png", image);
  saveDataterm("dataterm.gz", std::vector<float>(2 * 4));
  // The mean gradient is 1/2, and gamma 2 divided by it.
  const ProgramResult result = expectWarnings(
      {{"-weightcoeff", "-1"}}, {"-weightcoeff is negative; 4 is computed from the image"});
  expectEcho(result, "-weightcoeff -1");
}

TEST_F(RatsegWarnings, TellAnImageOfOneColourThatNoGammaCanBeComputedFrom) {
  saveImage("image.png", blackImage(FourLabels::w, FourLabels::h));
  expectWarnings(
      {{"-weightcoeff", "-1"}},
      {"-weightcoeff is negative, but the image has a single colour: no weight can be computed",
       "the computation met NaN or infinite values; the labeling means nothing"});
  // Where nothing is computed, nothing is lost.
  expectWarnings(
      {{"-weightcoeff", "-1"}, {"-iterations", "0"}},
      {"-weightcoeff is negative, but the image has a single colour: no weight can be computed"});
}

// The step size becomes infinite, and each pixel gets label 0.
TEST_F(RatsegWarnings, TellAComputationThatLeftTheNumbers) {
  const Changes changes = {{"-lambda", "1e-40"}, {"-accelerate", "1"}};
  expectWarnings(changes,
                 {"the computation met NaN or infinite values; the labeling means nothing"});
  EXPECT_EQ(readPackedArray<int>(dir_.file("out_result_labeling.gz")), std::vector<int>(96, 0));
  expectWarnings({{"-epsilon", "-1"}, {"-iterations", "100"}},
                 {"-epsilon should be positive",
                  "the computation met NaN or infinite values; the labeling means nothing"});
}

TEST_F(RatsegWarnings, CountPixelsWithLabelsThatTheirCostsForbid) {
  const float never = std::numeric_limits<float>::max();
  std::vector<float> rho = FourLabels::dataterm();
  for (std::size_t i = 0; i < 4; ++i) rho[i * 96 + 40] = rho[i * 96 + 41] = never;
  saveDataterm("dataterm.gz", rho);
  expectWarnings({{"-iterations", "0"}},
                 {"2 of 96 pixels have a label that the data term forbids there"});
  rho[41] = 0;
  saveDataterm("dataterm.gz", rho);
  expectWarnings({{"-iterations", "0"}},
                 {"1 of 96 pixels has a label that the data term forbids there"});
}

// The projection lifts forbidden labels where the prior pulls at the others.
TEST_F(RatsegWarnings, CountForbiddenLabelsThatTheSolverTakes) {
  const float never = std::numeric_limits<float>::max();
  std::vector<float> rho = FourLabels::dataterm();
  for (std::size_t p = 0; p < 96; ++p) rho[(p % 12 < 6 ? 0 : 96) + p] = never;
  saveDataterm("dataterm.gz", rho);
  saveText("proportions.txt", "0.3 0.02 0.3 0.02 0.4 0.02");
  const ProgramResult result = run({{"-mu", "500"}, {"-iterations", "1000"}});
  std::size_t forbidden = 0;
  const std::vector<int> labels = readPackedArray<int>(dir_.file("out_result_labeling.gz"));
  for (std::size_t p = 0; p < 96; ++p) {
    forbidden += rho[static_cast<std::size_t>(labels[p]) * 96 + p] >= never ? 1 : 0;
  }
  ASSERT_GT(forbidden, 1u);
  EXPECT_NE(result.err.find("ratseg: warning: " + std::to_string(forbidden) +
                            " of 96 pixels have a label that the data term forbids there\n"),
            std::string::npos)
      << result.err;
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegWarnings, CutAndCleanWhatTheyQuote) {
  expectWarnings(
      {{"-lambda", "\x1b[2J" + std::string(100, 'x')}},
      {"-lambda must be a number, but is \"?[2J" + std::string(56, 'x') + "...\"; 0 is used"});
}

TEST_F(RatsegWarnings, OfNaNInTheDatatermEndTheRun) {
  std::vector<float> rho = FourLabels::dataterm();
  rho[2 * 96 + 3 * 12 + 5] = std::numeric_limits<float>::quiet_NaN();
  saveDataterm("dataterm.gz", rho);
  const ProgramResult result = run();
  EXPECT_EQ(fromLine(result.out, "Dataterm: "),
            "Dataterm: dataterm.gz\n"
            "ERROR: dataterm dataterm.gz holds NaN at label 2, pixel (5, 3)\n");
  EXPECT_EQ(result.status, 1);
}

}  // namespace
}  // namespace namespace_ratseg
