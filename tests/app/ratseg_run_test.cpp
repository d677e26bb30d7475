// Complete runs: what standard output holds, and how options and inputs are read.

#include <cfloat>
#include <filesystem>
#include <limits>
#include <set>

#include "app/ratseg_program.h"

namespace namespace_ratseg {
namespace {

class RatsegRun : public RatsegProgram {
 protected:
  std::vector<int> labeling(const std::string& prefix = "out") const {
    return readPackedArray<int>(dir_.file(prefix + "_result_labeling.gz"));
  }
};

TEST_F(RatsegRun, PrintsItsWholeCourse) {
  const ProgramResult result = run();
  EXPECT_EQ(withoutTime(result.out),
            R"(Params: 
-image image.png
    Image to segment
-dataterm dataterm.gz
    Dataterm file (packed with zlib)
-proportions proportions.txt
    Mean/sigma for the proportions, see (9) in the paper
-lambda 0.5
    Lambda: Weight for length regularization term, typical range is 5-15, see (5) in the paper
-mu 1
    Mu: Weight for proportion prior term, typical range is 200-1000, see (12) in the paper
-epsilon 10
    Epsilon: A parameter for the proportion prior term, see (12) in the paper
-iterations 20
    Number of iterations
-weightcoeff 5
    Gamma: The parameter in the weighting w(x) = exp(-gamma*|grad InputImage(x)|) for local length regularization, see paper between (14) and (15)
-outprefix out
    Output prefix: E.g. the result labeling will be saved as "${outprefix}_result_labeling.gz"
-gpu 0
    GPU to use
Image to segment: image.png (12 x 8)
Labels: 4 (foreground labels: 0, 1, 2; background label: 3)
Proportions: proportions.txt
  ratios for fg label 0:  mean=0.330000   sigma=0.100000
  ratios for fg label 1:  mean=0.330000   sigma=0.200000
  ratios for fg label 2:  mean=0.340000   sigma=0.300000
Dataterm: dataterm.gz
Using: 0
GPU memory needed: 1 MB
Computing
Computation time: T s
Saved out_result_labeling.gz  (zlib-packed plain int array)
Saved out_result_labeling.png
  Color for foreground label 0: (0, 1, 0)
  Color for foreground label 1: (0, 0, 1)
  Color for foreground label 2: (1, 0, 0)
  Color for background label 3: (1, 1, 1)
Saved out_result_labeling_overlaid.png
Saved out_regularizer_weight.png
)");
  EXPECT_EQ(result.err,
            "Shares of the labeling:\n"
            "                           of foreground      wished      spread     of image\n"
            "    label 0                     0.333333        0.33         0.1     0.218750\n"
            "    label 1                     0.333333        0.33         0.2     0.218750\n"
            "    label 2                     0.333333        0.34         0.3     0.218750\n"
            "    label 3 (background)               -           -           -     0.343750\n");
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegRun, NamesMissedSharesOnlyWhereThePriorPulls) {
  saveText("proportions.txt", "0.9 0.01 0.05 0.2 0.05 0.3");
  const auto note = [&](const char* mu, const char* iterations = "1") {
    const std::string err = run({{"-mu", mu}, {"-iterations", iterations}}).err;
    return err.find("    label 0 is 56.7 spreads from its mean\n") != std::string::npos;
  };
  EXPECT_TRUE(note("0.001"));
  EXPECT_TRUE(note("-1"));
  EXPECT_FALSE(note("0"));
  EXPECT_FALSE(note("0.001", "0"));
}

TEST_F(RatsegRun, LeavesNothingButTheResultFiles) {
  ASSERT_EQ(run().status, 0);
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_.path())) {
    files.insert(entry.path().filename().string());
  }
  EXPECT_EQ(files, (std::set<std::string>{"dataterm.gz", "image.png", "out_regularizer_weight.png",
                                          "out_result_labeling.gz", "out_result_labeling.png",
                                          "out_result_labeling_overlaid.png", "proportions.txt"}));
}

TEST_F(RatsegRun, EchoesTheOptionsThatItWasGiven) {
  const ProgramResult result = run({{"-lambda", "12.3456789"},
                                    {"-mu", "2e6"},
                                    {"-epsilon", "1e-5"},
                                    {"-iterations", "3"},
                                    {"-weightcoeff", "0.50"},
                                    {"-outprefix", "my"},
                                    {"-gpu", "0"}});
  EXPECT_NE(result.out.find("\n-lambda 12.3457\n"), std::string::npos);
  EXPECT_NE(result.out.find("\n-mu 2e+06\n"), std::string::npos);
  EXPECT_NE(result.out.find("\n-epsilon 1e-05\n"), std::string::npos);
  EXPECT_NE(result.out.find("\n-iterations 3\n"), std::string::npos);
  EXPECT_NE(result.out.find("\n-weightcoeff 0.5\n"), std::string::npos);
  EXPECT_NE(result.out.find("\n-outprefix my\n"), std::string::npos);
  EXPECT_NE(result.out.find("\nSaved my_result_labeling.gz  ("), std::string::npos);
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegRun, Does5000IterationsByDefault) {
  const ProgramResult result = run({{"-iterations", "none"}});
  EXPECT_NE(result.out.find("\n-iterations 5000\n    Number of iterations\n"), std::string::npos);
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegRun, TellsHowLongItComputed) {
  const std::string line = fromLine(run({{"-iterations", "5000"}}).out, "Computation time: ");
  EXPECT_GT(std::stod(line.substr(std::string("Computation time: ").size())), 0) << line;
}

TEST_F(RatsegRun, TakesAMinusSignBeforeADigitForAValue) {
  const ProgramResult result = run({{"-lambda", "-5"}, {"-mu", "-0.5"}});
  EXPECT_NE(result.out.find("\n-lambda -5\n"), std::string::npos);
  EXPECT_NE(result.out.find("\n-mu -0.5\n"), std::string::npos);
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegRun, HasTwoLabelsForOnePairOfProportions) {
  saveText("proportions.txt", "1 0.05");
  std::vector<float> rho(2 * 96);
  for (std::size_t p = 0; p < 96; ++p) rho[p % 12 < 6 ? 96 + p : p] = 10;
  saveDataterm("dataterm.gz", rho);
  const ProgramResult result = run();
  EXPECT_EQ(withoutTime(fromLine(result.out, "Labels: ")),
            "Labels: 2 (foreground labels: 0; background label: 1)\n"
            "Proportions: proportions.txt\n"
            "  ratios for fg label 0:  mean=1.000000   sigma=0.050000\n"
            "Dataterm: dataterm.gz\n"
            "Using: 0\n"
            "GPU memory needed: 1 MB\n"
            "Computing\n"
            "Computation time: T s\n"
            "Saved out_result_labeling.gz  (zlib-packed plain int array)\n"
            "Saved out_result_labeling.png\n"
            "  Color for foreground label 0: (0, 1, 0)\n"
            "  Color for background label 1: (1, 1, 1)\n"
            "Saved out_result_labeling_overlaid.png\n"
            "Saved out_regularizer_weight.png\n");
  const std::vector<int> labels = labeling();
  ASSERT_EQ(labels.size(), 96u);
  for (std::size_t p = 0; p < 96; ++p) EXPECT_EQ(labels[p], p % 12 < 6 ? 0 : 1) << p;
}

// Between columns that know their label only the picture's edge tells where the border is: the
// labeling depends on which pixels are neighbours.
TEST_F(RatsegRun, FindsABorderAlongAnEdgeOfAPictureThatIsNotSquare) {
  constexpr int kEdge = 8;
  QImage image = blackImage(12, 8);
  for (int y = 0; y < 8; ++y) {
    for (int x = kEdge; x < 12; ++x) image.setPixel(x, y, qRgb(255, 255, 255));
  }
  saveImage("image.png", image);
  saveText("proportions.txt", "1 0.05");
  std::vector<float> rho(2 * 96);
  for (std::size_t p = 0; p < 96; ++p) {
    if (p % 12 < 3) rho[96 + p] = 10;
    if (p % 12 >= 9) rho[p] = 10;
  }
  saveDataterm("dataterm.gz", rho);
  ASSERT_EQ(run({{"-mu", "0"}, {"-lambda", "1"}, {"-iterations", "2000"}}).status, 0);
  const std::vector<int> labels = labeling();
  ASSERT_EQ(labels.size(), 96u);
  for (std::size_t p = 0; p < 96; ++p) EXPECT_EQ(labels[p], p % 12 < kEdge ? 0 : 1) << p;
}

TEST_F(RatsegRun, StopsReadingProportionsAtAWordInPlaceOfAMean) {
  saveText("proportions.txt", "0.3 0.1 abc 0.2");
  saveDataterm("dataterm.gz", std::vector<float>(2 * 96));
  const ProgramResult result = run();
  EXPECT_NE(result.out.find("\nLabels: 2 (foreground labels: 0; background label: 1)\n"
                            "Proportions: proportions.txt\n"
                            "  ratios for fg label 0:  mean=0.300000   sigma=0.100000\n"
                            "Dataterm: "),
            std::string::npos)
      << result.out;
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegRun, ReadsProportionsWhateverTheirLineBreaks) {
  saveText("proportions.txt", "0.33\r\n0.1 0.33\t0.2\n\n0.34 0.3");
  const ProgramResult result = run();
  EXPECT_EQ(result.out.find("ERROR"), std::string::npos);
  EXPECT_NE(result.out.find("  ratios for fg label 0:  mean=0.330000   sigma=0.100000\n"
                            "  ratios for fg label 1:  mean=0.330000   sigma=0.200000\n"
                            "  ratios for fg label 2:  mean=0.340000   sigma=0.300000\n"),
            std::string::npos);
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegRun, ReadsAnUncompressedDataterm) {
  const std::vector<float> rho = FourLabels::dataterm();
  const std::uint64_t count = rho.size();
  std::string bytes(reinterpret_cast<const char*>(&count), sizeof count);
  bytes.append(reinterpret_cast<const char*>(rho.data()), rho.size() * sizeof(float));
  saveText("dataterm.gz", bytes);
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(labeling()[13], FourLabels::label(1, 1));
}

TEST_F(RatsegRun, TakesForbiddenAndForcedLabels) {
  std::vector<float> rho = FourLabels::dataterm();
  const std::size_t pixel = 40;  // (4, 3), of label 1
  rho[0 * 96 + pixel] = -FLT_MAX;
  rho[2 * 96 + pixel] = FLT_MAX;
  rho[3 * 96 + pixel] = std::numeric_limits<float>::infinity();
  saveDataterm("dataterm.gz", rho);
  const ProgramResult result = run();
  EXPECT_EQ(withoutShares(result.err), "");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(labeling()[pixel], 0);
}

TEST_F(RatsegRun, ReturnsThePixelwiseBestLabelAfterNoIteration) {
  ASSERT_EQ(run({{"-iterations", "0"}}).status, 0);
  const std::vector<int> labels = labeling();
  for (int y = 0; y < FourLabels::h; ++y) {
    for (int x = 0; x < FourLabels::w; ++x) {
      EXPECT_EQ(labels[static_cast<std::size_t>(y * FourLabels::w + x)], FourLabels::label(x, y));
    }
  }
}

TEST_F(RatsegRun, TakesOptionsFromTheOptionFileAndThenFromTheCommandLine) {
  saveText("ratseg.cfg",
           "# the problem\n"
           "-image image.png\ndataterm dataterm.gz\nproportions proportions.txt\n"
           "lambda 0.25\nmu 2 // weight of the prior\niterations 7\n");
  const ProgramResult result = runWords({"-iterations", "9"});
  EXPECT_NE(result.out.find("\n-lambda 0.25\n"), std::string::npos);
  EXPECT_NE(result.out.find("\n-mu 2\n"), std::string::npos);
  EXPECT_NE(result.out.find("\n-iterations 9\n"), std::string::npos);
  EXPECT_EQ(withoutShares(result.err), "ratseg: options from \"./ratseg.cfg\"\n");
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegRun, FindsTheOptionFileBesideTheProgramAsItWasCalled) {
  std::filesystem::create_directory(dir_.file("tools"));
  saveText("tools/seg.cfg", "mu 77\n");
  const ProgramResult result = program_.run(commandLine({{"-mu", "none"}}), "tools/seg");
  EXPECT_NE(result.out.find("\n-mu 77\n"), std::string::npos);
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegRun, TakesItsDefaultWhereTheCommandLineRepeatsAnOptionOfTheFileWithoutValue) {
  saveText("ratseg.cfg", "outprefix fromfile\nweightcoeff 3\n");
  std::vector<std::string> words = commandLine();
  words.insert(words.end(), {"-outprefix", "-weightcoeff", "2"});
  const ProgramResult result = runWords(words);
  EXPECT_NE(result.out.find("\n-weightcoeff 2\n"), std::string::npos);
  EXPECT_NE(result.out.find("\n-outprefix out\n"), std::string::npos);
  EXPECT_EQ(result.status, 0);
}

// Qt's own names are UTF-8, and those that begin with a colon are not names of files.
TEST_F(RatsegRun, ReadsAndWritesFilesWhoseNamesQtDoesNotKnow) {
  for (const std::string name : {"caf\xE9", ":name"}) {
    SCOPED_TRACE(name);
    saveImage("image.png", FourLabels::image());
    std::filesystem::rename(dir_.file("image.png"), dir_.file(name + ".png"));
    EXPECT_EQ(run({{"-image", name + ".png"}, {"-outprefix", name}}).status, 0);
    for (const char* suffix : {"_result_labeling.gz", "_result_labeling.png",
                               "_result_labeling_overlaid.png", "_regularizer_weight.png"}) {
      EXPECT_TRUE(std::filesystem::exists(dir_.file(name + suffix))) << suffix;
    }
  }
}

TEST_F(RatsegRun, ReadsAndWritesFilesWithBlanksAndForeignLettersInTheirNames) {
  for (const char* locale : {"C", "C.UTF-8"}) {
    SCOPED_TRACE(locale);
    program_.environment["LC_ALL"] = locale;
    const std::string folder = std::string("été ") + locale;
    std::filesystem::create_directory(dir_.file(folder));
    saveImage(folder + "/画像 1.png", FourLabels::image());
    saveDataterm(folder + "/Daten ß.gz", FourLabels::dataterm());
    saveText(folder + "/доля.txt", FourLabels::proportions);
    const ProgramResult result = run({{"-image", folder + "/画像 1.png"},
                                      {"-dataterm", folder + "/Daten ß.gz"},
                                      {"-proportions", folder + "/доля.txt"},
                                      {"-outprefix", folder + "/Ergebnis ü"}});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("Image to segment: " + folder + "/画像 1.png (12 x 8)\n"),
              std::string::npos)
        << result.out;
    for (const char* suffix : {"_result_labeling.gz", "_result_labeling.png",
                               "_result_labeling_overlaid.png", "_regularizer_weight.png"}) {
      EXPECT_TRUE(std::filesystem::exists(dir_.file(folder + "/Ergebnis ü" + suffix))) << suffix;
    }
  }
}

TEST_F(RatsegRun, SegmentsImagesOfOnePixelOneRowAndOneColumn) {
  saveText("proportions.txt", "0.5 0.1 0.5 0.1");
  for (const auto& [w, h] : {std::pair{1, 1}, {7, 1}, {1, 7}}) {
    SCOPED_TRACE(std::to_string(w) + " x " + std::to_string(h));
    const auto pixels = static_cast<std::size_t>(w * h);
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(qRgb(10, 20, 30));
    saveImage("image.png", image);
    std::vector<float> rho(3 * pixels, 10.0f);
    for (std::size_t p = 0; p < pixels; ++p) rho[pixels + p] = 0.0f;
    saveDataterm("dataterm.gz", rho);
    EXPECT_EQ(run().status, 0);
    EXPECT_EQ(labeling(), std::vector<int>(pixels, 1));
  }
}

TEST_F(RatsegRun, ReadsImagesOfOtherDepths) {
  for (const QImage::Format format :
       {QImage::Format_Grayscale8, QImage::Format_Grayscale16, QImage::Format_RGB888,
        QImage::Format_Indexed8, QImage::Format_Mono, QImage::Format_ARGB32}) {
    SCOPED_TRACE(format);
    saveImage("image.png", FourLabels::image().convertToFormat(format));
    EXPECT_EQ(run().status, 0);
  }
}

TEST_F(RatsegRun, GivesTheSameBytesEveryTime) {
  ASSERT_EQ(run({{"-outprefix", "a"}, {"-lambda", "8"}, {"-mu", "500"}}).status, 0);
  ASSERT_EQ(run({{"-outprefix", "b"}, {"-lambda", "8"}, {"-mu", "500"}}).status, 0);
  EXPECT_EQ(labeling("a"), labeling("b"));
}

}  // namespace
}  // namespace namespace_ratseg
