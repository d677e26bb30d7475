// Where the program computes: -device, RATSEG_DEVICE and -gpu.

#include "app/ratseg_program.h"
#include "device/selection.h"

namespace namespace_ratseg {
namespace {

constexpr const char* kNoDevice = "ERROR: No CUDA devices found (or CUDA not installed)\n";
constexpr const char* kNotice = "ratseg: no CUDA GPU found, computing on the host with 1 thread\n";

class RatsegDevice : public RatsegProgram {
 protected:
  void expectRefused(const ProgramResult& result, const std::string& error,
                     const std::string& err = "") const {
    EXPECT_EQ(result.out, error);
    EXPECT_EQ(result.err, err);
    EXPECT_EQ(result.status, 1);
  }

  static bool hasGPU() { return cudaBackendIfUsable() != nullptr; }
};

TEST_F(RatsegDevice, IsNotEchoedOnStandardOutput) {
  const ProgramResult plain = run();
  const ProgramResult chosen = run({{"-device", "host"}});
  EXPECT_EQ(withoutTime(chosen.out), withoutTime(plain.out));
  EXPECT_EQ(withoutShares(chosen.err), "");
  EXPECT_EQ(chosen.status, 0);
}

TEST_F(RatsegDevice, OfAnUnknownKindIsRefused) {
  expectRefused(run({{"-device", "gpu"}}),
                "ERROR: -device must be auto, cuda or host, but is \"gpu\"\n");
  expectRefused(run({{"-device", ""}}), "ERROR: -device must be auto, cuda or host, but is \"\"\n");
}

TEST_F(RatsegDevice, OfAnUnknownKindInTheEnvironmentIsRefused) {
  program_.environment["RATSEG_DEVICE"] = "gpu";
  const std::string error = "ERROR: RATSEG_DEVICE must be auto, cuda or host, but is \"gpu\"\n";
  expectRefused(run(), error);
  expectRefused(runWords({}), error);
}

TEST_F(RatsegDevice, OnTheCommandLineBeatsTheEnvironment) {
  for (const char* variable : {"gpu", "cuda"}) {
    program_.environment["RATSEG_DEVICE"] = variable;
    const ProgramResult result = run({{"-device", "host"}});
    EXPECT_EQ(withoutShares(result.err), "");
    EXPECT_EQ(result.status, 0);
  }
}

TEST_F(RatsegDevice, IsReadFromTheOptionFileToo) {
  saveText("ratseg.cfg", "device nowhere\n");
  const std::string error = "ERROR: -device must be auto, cuda or host, but is \"nowhere\"\n";
  expectRefused(run(), error, "ratseg: options from \"./ratseg.cfg\"\n");
  expectRefused(runWords({}), error);
  EXPECT_EQ(run({{"-device", "host"}}).status, 0);
}

TEST_F(RatsegDevice, OfNoMachineIsReportedWhoeverChoseIt) {
  program_.environment["RATSEG_HOST_DEVICES"] = "0";
  const ProgramResult result = run({{"-device", "host"}});
  EXPECT_EQ(result.out, kNoDevice);
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegDevice, OfCudaNeedsAGPU) {
  if (hasGPU()) GTEST_SKIP() << "there is a CUDA GPU";
  program_.environment["RATSEG_DEVICE"] = "cuda";
  EXPECT_EQ(run().out, kNoDevice);
  EXPECT_EQ(run().status, 1);
  program_.environment["RATSEG_DEVICE"] = "host";
  EXPECT_EQ(run({{"-device", "cuda"}}).out, kNoDevice);
}

TEST_F(RatsegDevice, IsTheHostWithANoticeWhereThereIsNoGPU) {
  if (hasGPU()) GTEST_SKIP() << "there is a CUDA GPU";
  for (const char* variable : {"", "auto"}) {
    program_.environment["RATSEG_DEVICE"] = variable;
    const ProgramResult result = run();
    EXPECT_EQ(withoutShares(result.err), kNotice);
    EXPECT_EQ(result.status, 0);
  }
  program_.environment["RATSEG_DEVICE"] = "cuda";
  EXPECT_EQ(withoutShares(run({{"-device", "auto"}}).err), kNotice);
}

TEST_F(RatsegDevice, OfCudaFindsTheSameLabeling) {
  if (!hasGPU()) GTEST_SKIP() << "no CUDA GPU on this machine";
  const ProgramResult result = run({{"-device", "cuda"}});
  EXPECT_EQ(withoutShares(result.err), "");
  EXPECT_EQ(result.status, 0);
  const std::vector<int> labels = readPackedArray<int>(dir_.file("out_result_labeling.gz"));
  ASSERT_EQ(labels.size(), 96u);
  for (int p = 0; p < 96; ++p) {
    EXPECT_EQ(labels[static_cast<std::size_t>(p)], FourLabels::label(p % 12, p / 12)) << p;
  }
}

TEST_F(RatsegDevice, IsTheOneOfTheGivenNumber) {
  program_.environment["RATSEG_HOST_DEVICES"] = "3";
  const ProgramResult result = run({{"-gpu", "2"}});
  EXPECT_NE(result.out.find("\n-gpu 2\n    GPU to use\n"), std::string::npos);
  EXPECT_NE(result.out.find("\nUsing: 2\nGPU memory needed: 1 MB\nComputing\n"), std::string::npos);
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegDevice, OfANumberThatDoesNotExistIsRefusedAfterTheSummary) {
  for (const char* number : {"7", "1", "-1"}) {
    const ProgramResult result = run({{"-gpu", number}});
    EXPECT_EQ(fromLine(result.out, "Dataterm: "),
              "Dataterm: dataterm.gz\n"
              "ERROR: -gpu must be a device number from 0 to 0, but is " +
                  std::string(number) + "\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 1);
  }
}

class RatsegManyLabels : public RatsegProgram {
 protected:
  ProgramResult runWith(int labels, const Changes& changes) const {
    saveImage("image.png", blackImage(2, 1));
    std::string pairs;
    for (int i = 1; i < labels; ++i) pairs += "0.001 0.1\n";
    saveText("proportions.txt", pairs);
    saveDataterm("dataterm.gz", std::vector<float>(2 * static_cast<std::size_t>(labels)));
    return run(changes);
  }
};

TEST_F(RatsegManyLabels, AreTakenUpToTheSizeOfABlockOfTheDevice) {
  EXPECT_EQ(runWith(1024, {{"-iterations", "2"}}).status, 0);
}

TEST_F(RatsegManyLabels, BeyondTheSizeOfABlockAreRefused) {
  const ProgramResult result = runWith(1025, {});
  EXPECT_EQ(fromLine(result.out, "Dataterm: "),
            "Dataterm: dataterm.gz\n"
            "ERROR: device 0 takes at most 1024 labels, but there are 1025\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegManyLabels, NeedNoBlockWhenNothingIsIterated) {
  EXPECT_EQ(runWith(1025, {{"-iterations", "0"}}).status, 0);
}

}  // namespace
}  // namespace namespace_ratseg
