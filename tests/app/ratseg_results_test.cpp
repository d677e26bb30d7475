// The four result files of the program, by content.

#include <zlib.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "app/ratseg_program.h"
#include "support/reference_case.h"

namespace namespace_ratseg {
namespace {

constexpr int kW = FourLabels::w;
constexpr int kH = FourLabels::h;
const QRgb kColours[4] = {qRgb(0, 255, 0), qRgb(0, 0, 255), qRgb(255, 0, 0), qRgb(255, 255, 255)};

std::vector<unsigned char> uncompressed(const std::string& file) {
  std::vector<unsigned char> bytes(1 << 16);
  gzFile stream = gzopen(file.c_str(), "rb");
  if (stream == nullptr) throw std::runtime_error("cannot open " + file);
  const int read = gzread(stream, bytes.data(), static_cast<unsigned>(bytes.size()));
  bytes.resize(read > 0 ? static_cast<std::size_t>(read) : 0);
  gzclose(stream);
  return bytes;
}

class RatsegResults : public RatsegProgram {
 protected:
  QImage picture(const std::string& name) const {
    const QImage image(QString::fromStdString(dir_.file(name)));
    EXPECT_EQ(image.size(), QSize(kW, kH)) << name;
    return image.convertToFormat(QImage::Format_ARGB32);
  }
};

TEST_F(RatsegResults, HoldTheLabelingAsCountAndInts) {
  ASSERT_EQ(run().status, 0);
  const std::vector<unsigned char> bytes = uncompressed(dir_.file("out_result_labeling.gz"));
  ASSERT_EQ(bytes.size(), 8u + 4u * kW * kH);
  const unsigned char count[8] = {96, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(bytes.data(), count, 8), 0);
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      std::int32_t label = -1;
      std::memcpy(&label, bytes.data() + 8 + 4 * (y * kW + x), 4);
      EXPECT_EQ(label, FourLabels::label(x, y)) << x << ", " << y;
    }
  }
}

TEST_F(RatsegResults, AreCompressedAsMuchAsZlibCan) {
  ASSERT_EQ(run().status, 0);
  std::ifstream file(dir_.file("out_result_labeling.gz"), std::ios::binary);
  char header[10] = {};
  ASSERT_TRUE(file.read(header, sizeof header));
  EXPECT_EQ(header[0], '\x1f');
  EXPECT_EQ(header[1], '\x8b');
  EXPECT_EQ(header[8], 2);  // gzip's mark of the slowest compression
}

TEST_F(RatsegResults, ShowTheLabelingInColours) {
  ASSERT_EQ(run().status, 0);
  const QImage colours = picture("out_result_labeling.png");
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      EXPECT_EQ(colours.pixel(x, y), kColours[FourLabels::label(x, y)]) << x << ", " << y;
    }
  }
}

// A channel of the overlay: truncated, and so up to one below the exact blend.
int blended(int image, int colour) {
  const float value = static_cast<float>(image) / 255.0f * 0.4f + (colour > 0 ? 1.0f : 0.0f) * 0.6f;
  return static_cast<int>(static_cast<double>(value) * 255.0);
}

TEST_F(RatsegResults, ShowTheLabelingOverTheImage) {
  ASSERT_EQ(run().status, 0);
  const QImage overlay = picture("out_result_labeling_overlaid.png");
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      const QRgb image = FourLabels::colour(x, y);
      const QRgb colour = kColours[FourLabels::label(x, y)];
      EXPECT_EQ(overlay.pixel(x, y),
                qRgb(blended(qRed(image), qRed(colour)), blended(qGreen(image), qGreen(colour)),
                     blended(qBlue(image), qBlue(colour))))
          << x << ", " << y;
    }
  }
}

// exp(-gamma |forward differences|) in grey, 0 across the borders.
int expectedWeight(double gamma, int x, int y) {
  const QRgb here = FourLabels::colour(x, y);
  double squares = 0;
  const auto add = [&](QRgb there) {
    for (int shift = 0; shift < 24; shift += 8) {
      const int difference =
          static_cast<int>(there >> shift & 255) - static_cast<int>(here >> shift & 255);
      squares += std::pow(difference / 255.0, 2);
    }
  };
  if (x + 1 < kW) add(FourLabels::colour(x + 1, y));
  if (y + 1 < kH) add(FourLabels::colour(x, y + 1));
  return static_cast<int>(std::exp(-gamma * std::sqrt(squares)) * 255);
}

TEST_F(RatsegResults, ShowTheWeightOfTheRegulariser) {
  for (const auto& [coefficient, gamma] : {std::pair{"none", 5.0}, {"2", 2.0}}) {
    ASSERT_EQ(run({{"-weightcoeff", coefficient}}).status, 0);
    const QImage weight = picture("out_regularizer_weight.png");
    for (int y = 0; y < kH; ++y) {
      for (int x = 0; x < kW; ++x) {
        const QRgb grey = weight.pixel(x, y);
        EXPECT_NEAR(qRed(grey), expectedWeight(gamma, x, y), 1) << x << ", " << y;
        EXPECT_EQ(grey, qRgb(qRed(grey), qRed(grey), qRed(grey)));
      }
    }
    EXPECT_EQ(weight.pixel(kW - 1, kH - 1), qRgb(255, 255, 255));
  }
}

TEST_F(RatsegResults, ShowAWhiteWeightWhereThereIsNone) {
  ASSERT_EQ(run({{"-weightcoeff", "0"}}).status, 0);
  const QImage weight = picture("out_regularizer_weight.png");
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) EXPECT_EQ(weight.pixel(x, y), qRgb(255, 255, 255));
  }
}

TEST_F(RatsegResults, OfTwoLabelsAreGreenAndWhiteOnly) {
  saveText("proportions.txt", "1 0.1");
  std::vector<float> rho(2 * 96);
  for (std::size_t p = 0; p < 96; ++p) rho[p % 5 == 0 ? p : 96 + p] = 10;
  saveDataterm("dataterm.gz", rho);
  ASSERT_EQ(run({{"-lambda", "0"}}).status, 0);
  const QImage colours = picture("out_result_labeling.png");
  for (int p = 0; p < 96; ++p) {
    EXPECT_EQ(colours.pixel(p % kW, p / kW), p % 5 == 0 ? kColours[3] : kColours[0]) << p;
  }
}

// A problem of known result beside the project; where the two greatest values of a pixel are close,
// either label is right.
class RatsegReferenceCase : public RatsegProgram,
                            public testing::WithParamInterface<const char*> {};

TEST_P(RatsegReferenceCase, EndsInTheKnownLabeling) {
  const std::vector<std::string> names = referenceCaseNames();
  if (std::find(names.begin(), names.end(), GetParam()) == names.end()) {
    GTEST_SKIP() << "no case " << GetParam() << " in " << referenceCaseFolder();
  }
  const ReferenceCase c = loadReferenceCase(GetParam());
  const auto text = [](double x) { return std::to_string(x); };
  ASSERT_EQ(c.dt_multiplier, 1.0f);
  const ProgramResult result = run({{"-image", c.file("image.png")},
                                    {"-dataterm", c.file("dataterm.gz")},
                                    {"-proportions", c.file("proportions.txt")},
                                    {"-lambda", text(c.lambda)},
                                    {"-mu", text(c.mu)},
                                    {"-epsilon", text(c.eps)},
                                    {"-weightcoeff", text(c.weightcoeff)},
                                    {"-iterations", std::to_string(c.iterations)}});
  ASSERT_EQ(result.status, 0) << result.out;
  const std::vector<int> labels = readPackedArray<int>(dir_.file("out_result_labeling.gz"));
  const std::size_t pixels = c.w * c.h;
  ASSERT_EQ(labels.size(), pixels);
  std::size_t clear = 0;
  for (std::size_t p = 0; p < pixels; ++p) {
    std::size_t best = 0;
    float second = -1;
    for (std::size_t i = 1; i < c.n; ++i) {
      const float value = c.u[i * pixels + p];
      const float greatest = c.u[best * pixels + p];
      second = std::max(second, std::min(value, greatest));
      if (value > greatest) best = i;
    }
    if (c.u[best * pixels + p] - second < 1e-3f) continue;
    ++clear;
    EXPECT_EQ(labels[p], static_cast<int>(best)) << "pixel " << p;
  }
  EXPECT_GT(clear, pixels * 9 / 10);
}

INSTANTIATE_TEST_SUITE_P(Upper, RatsegReferenceCase,
                         testing::Values("upper_64x48x3", "upper_37x29x6", "upper_130x1x2",
                                         "upper_1x40x3", "upper_lambda0_32x32x3",
                                         "upper_mu0_32x32x3", "upper_noweight_50x33x4",
                                         "upper_special_40x40x3"),
                         [](const auto& test) { return std::string(test.param); });

}  // namespace
}  // namespace namespace_ratseg
