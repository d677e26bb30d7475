#include "app/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "util/cmd.h"

namespace namespace_ratseg {
namespace {

Options read(std::vector<const char*> words, Params& par) {
  for (const char* word :
       {"-image", "i", "-dataterm", "d", "-proportions", "p", "-lambda", "7.5", "-mu", "300"}) {
    words.push_back(word);
  }
  words.insert(words.begin(), "ratseg");
  Cmd cmd(static_cast<int>(words.size()), words.data(), "", nullptr, 0);
  testing::internal::CaptureStdout();
  const Options options = readOptions(cmd, par);
  testing::internal::GetCapturedStdout();
  return options;
}

TEST(AppOptions, FillTheSolversParameters) {
  Params par;
  read({"-epsilon", "0.25", "-iterations", "12"}, par);
  EXPECT_EQ(par.lambda, 7.5f);
  EXPECT_EQ(par.mu, 300.0f);
  EXPECT_EQ(par.eps, 0.25f);
  EXPECT_EQ(par.Nsteps, 12u);
}

TEST(AppOptions, DefaultTo5000IterationsAlthoughTheUsageScreenSays10000) {
  Params par;
  const Options options = read({}, par);
  EXPECT_EQ(par.Nsteps, 5000u);
  EXPECT_EQ(par.eps, 10.0f);
  EXPECT_EQ(options.weightcoeff, 5.0f);
  EXPECT_EQ(options.outprefix, "out");
  EXPECT_EQ(options.gpu, 0);
}

TEST(AppOptions, LeaveTheKindOfPriorAndTheDeviceListAlone) {
  Params par;
  read({"-gpu", "3"}, par);
  EXPECT_EQ(par.kind_prior, Params::kind_prior_upperBound);
  EXPECT_TRUE(par.gpu.empty());
}

TEST(AppOptions, ReadTheOthers) {
  Params par;
  const Options options = read({"-weightcoeff", "-0.5", "-outprefix", "./a_b", "-gpu", "3"}, par);
  EXPECT_EQ(options.image, "i");
  EXPECT_EQ(options.dataterm, "d");
  EXPECT_EQ(options.proportions, "p");
  EXPECT_EQ(options.weightcoeff, -0.5f);
  EXPECT_EQ(options.outprefix, "./a_b");
  EXPECT_EQ(options.gpu, 3);
}

}  // namespace
}  // namespace namespace_ratseg
