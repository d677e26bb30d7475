#ifndef RATSEG_TESTS_APP_RATSEG_PROGRAM_H
#define RATSEG_TESTS_APP_RATSEG_PROGRAM_H

// What the tests of the built program share: a small problem in a folder of its own, and runs of
// the program in that folder.

#include <gtest/gtest.h>

#include <QImage>
#include <QString>
#include <cstddef>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "support/packed_array.h"
#include "support/program.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {

// Four labels in columns of three pixels, and a first row of background. The data term says so
// clearly enough that every solve of some iterations must find just this.
struct FourLabels {
  static constexpr int w = 12, h = 8, n = 4;

  static int label(int x, int y) { return y == 0 ? n - 1 : x / 3; }
  static QRgb colour(int x, int y) { return qRgb(20 * x, 30 * y, 3 * x + 2 * y); }

  static QImage image() {
    QImage result(w, h, QImage::Format_RGB32);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) result.setPixel(x, y, colour(x, y));
    }
    return result;
  }

  // n planes; the true label costs 0 and the others 10. Planes beyond the fourth cost 20.
  static std::vector<float> dataterm(int planes = n) {
    std::vector<float> rho;
    for (int i = 0; i < planes; ++i) {
      for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) rho.push_back(i >= n ? 20 : label(x, y) == i ? 0 : 10);
      }
    }
    return rho;
  }

  static constexpr const char* proportions = "0.33 0.1\n0.33 0.2\n0.34 0.3\n";
};

// A folder with image.png, dataterm.gz and proportions.txt of FourLabels, in which the program
// runs, on the host and in one thread unless a test says otherwise.
class RatsegProgram : public testing::Test {
 protected:
  // Options and their values; those that a test does not name are the default ones.
  using Changes = std::map<std::string, std::string>;

  RatsegProgram() {
    program_.path = RATSEG_BIN_DIR "/ratseg";
    program_.folder = dir_.path().string();
    program_.environment = {{"OMP_NUM_THREADS", "1"},
                            {"RATSEG_DEVICE", "host"},
                            {"RATSEG_HOST_DEVICES", ""},
                            {"RATSEG_HOST_PEER", ""},
                            {"RATSEG_HOST_MEMORY", ""}};
    saveImage("image.png", FourLabels::image());
    saveDataterm("dataterm.gz", FourLabels::dataterm());
    saveText("proportions.txt", FourLabels::proportions);
  }

  static QImage blackImage(int w, int h) {
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(Qt::black);
    return image;
  }
  void saveText(const std::string& name, const std::string& text) const {
    std::ofstream(dir_.file(name), std::ios::binary) << text;
  }
  void saveImage(const std::string& name, const QImage& image) const {
    ASSERT_TRUE(image.save(QString::fromStdString(dir_.file(name)), "PNG"));
  }
  void saveDataterm(const std::string& name, const std::vector<float>& rho) const {
    writePackedArray(dir_.file(name), rho);
  }

  // The command line of a short run of the problem, with changed or added options; an empty value
  // means the option without a value, and the value "none" leaves the option out.
  static std::vector<std::string> commandLine(const Changes& changes = {}) {
    Changes options = {{"-image", "image.png"},
                       {"-dataterm", "dataterm.gz"},
                       {"-proportions", "proportions.txt"},
                       {"-lambda", "0.5"},
                       {"-mu", "1"},
                       {"-iterations", "20"}};
    for (const auto& [name, value] : changes) options[name] = value;
    std::vector<std::string> words;
    for (const auto& [name, value] : options) {
      if (value == "none") continue;
      words.push_back(name);
      if (!value.empty()) words.push_back(value);
    }
    return words;
  }

  // The program's word 0 is "./ratseg", so its option file is ratseg.cfg in the folder.
  ProgramResult runWords(const std::vector<std::string>& words) const {
    return program_.run(words, "./ratseg");
  }
  ProgramResult run(const Changes& changes = {}) const { return runWords(commandLine(changes)); }

  const TempDir dir_;
  Program program_;
};

// Standard output with the seconds of the computation, which differ from run to run, as "T".
inline std::string withoutTime(const std::string& out) {
  static const std::regex time("(^|\n)Computation time: [0-9][0-9.e+-]* s\n");
  return std::regex_replace(out, time, "$1Computation time: T s\n");
}

// What standard error says beside the labeling's shares, with which a run that ends well ends;
// where it does not, all of it.
inline std::string withoutShares(const std::string& err) {
  static const std::string head = "Shares of the labeling:\n";
  const std::size_t at = ("\n" + err).find("\n" + head);
  if (at == std::string::npos) return err;
  std::size_t end = at + head.size();
  while (err.compare(end, 4, "    ") == 0 && end < err.size()) end = err.find('\n', end) + 1;
  return err.substr(0, at) + err.substr(end);
}

// What standard error says without the warnings of options that are repeated at the end.
inline std::string withoutRepeats(const std::string& err) {
  static const std::regex line("(^|\n)(ratseg: warning \\(repeated\\): [^\n]*\n)+");
  return std::regex_replace(err, line, "$1");
}

// The text from the line that begins with start on.
inline std::string fromLine(const std::string& text, const std::string& start) {
  const std::size_t at = ("\n" + text).find("\n" + start);
  return at == std::string::npos ? "no line \"" + start + "\" in:\n" + text : text.substr(at);
}

// What the program echoes of commandLine(), up to the option before end.
inline std::string echoUpTo(const std::string& end) {
  static const std::string echo =
      "Params: \n"
      "-image image.png\n"
      "    Image to segment\n"
      "-dataterm dataterm.gz\n"
      "    Dataterm file (packed with zlib)\n"
      "-proportions proportions.txt\n"
      "    Mean/sigma for the proportions, see (9) in the paper\n"
      "-lambda 0.5\n"
      "    Lambda: Weight for length regularization term, typical range is 5-15, see (5) in the "
      "paper\n"
      "-mu 1\n"
      "    Mu: Weight for proportion prior term, typical range is 200-1000, see (12) in the "
      "paper\n"
      "-epsilon 10\n"
      "    Epsilon: A parameter for the proportion prior term, see (12) in the paper\n"
      "-iterations 20\n"
      "    Number of iterations\n"
      "-weightcoeff 5\n"
      "    Gamma: The parameter in the weighting w(x) = exp(-gamma*|grad InputImage(x)|) for local "
      "length regularization, see paper between (14) and (15)\n"
      "-outprefix out\n"
      "    Output prefix: E.g. the result labeling will be saved as "
      "\"${outprefix}_result_labeling.gz\"\n"
      "-gpu 0\n"
      "    GPU to use\n";
  return end.empty() ? echo : echo.substr(0, echo.find("\n" + end + " ") + 1);
}

// All of the echo.
inline std::string wholeEcho() { return echoUpTo(""); }

}  // namespace namespace_ratseg

#endif
