#include "device/environment.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/environment.h"

namespace namespace_ratseg {
namespace {

using Variables = std::map<std::string, std::string>;

Environment read(const Variables& variables,
                 const std::vector<HostIsa>& isas = {HostIsa::baseline, HostIsa::avx2}) {
  return Environment::read(
      [&](const char* name) {
        const auto found = variables.find(name);
        return found != variables.end() ? found->second.c_str() : nullptr;
      },
      isas);
}

void expectDefaults(const Environment& e) {
  EXPECT_EQ(e.device.value, DeviceChoice::automatic);
  EXPECT_EQ(e.host.value.devices, 1);
  EXPECT_TRUE(e.host.value.peer);
  EXPECT_EQ(e.host.value.memoryBytes, 0u);
  EXPECT_EQ(e.isa.value, HostIsa::avx2);
  EXPECT_EQ(e.strips.value.rows, 0u);
  EXPECT_EQ(e.strips.value.pixels, 0u);
  EXPECT_EQ(e.strips.value.threads, 0u);
  for (const std::string* error : {&e.device.error, &e.host.error, &e.isa.error, &e.strips.error}) {
    EXPECT_EQ(*error, "");
  }
}

TEST(Environment, UnsetAndEmptyVariablesAskForNothing) {
  expectDefaults(read({}));
  Variables empty;
  for (const char* name : {"DEVICE", "HOST_DEVICES", "HOST_PEER", "HOST_MEMORY", "ISA",
                           "STRIP_ROWS", "STRIP_PIXELS", "STRIP_THREADS"}) {
    empty[std::string("RATSEG_") + name] = "";
  }
  expectDefaults(read(empty));
}

TEST(Environment, NamesADevice) {
  EXPECT_EQ(read({{"RATSEG_DEVICE", "cuda"}}).device.value, DeviceChoice::cuda);
  EXPECT_EQ(read({{"RATSEG_DEVICE", "host"}}).device.value, DeviceChoice::host);
  EXPECT_EQ(read({{"RATSEG_DEVICE", "auto"}}).device.value, DeviceChoice::automatic);
  EXPECT_EQ(read({{"RATSEG_DEVICE", "tpu"}}).device.error,
            "ERROR: RATSEG_DEVICE must be auto, cuda or host, but is \"tpu\"");
}

TEST(Environment, DescribesTheHost) {
  const Environment e = read(
      {{"RATSEG_HOST_DEVICES", "4"}, {"RATSEG_HOST_PEER", "0"}, {"RATSEG_HOST_MEMORY", "100"}});
  EXPECT_EQ(e.host.error, "");
  EXPECT_EQ(e.host.value.devices, 4);
  EXPECT_FALSE(e.host.value.peer);
  EXPECT_EQ(e.host.value.memoryBytes, std::size_t{100} << 20);
}

TEST(Environment, TakesTheEndsOfTheHostsRanges) {
  const Environment e = read({{"RATSEG_HOST_DEVICES", "64"},
                              {"RATSEG_HOST_PEER", "1"},
                              {"RATSEG_HOST_MEMORY", "1073741824"}});
  EXPECT_EQ(e.host.error, "");
  EXPECT_EQ(e.host.value.devices, 64);
  EXPECT_EQ(e.host.value.memoryBytes, std::size_t{1} << 50);
  EXPECT_EQ(read({{"RATSEG_HOST_DEVICES", "0"}}).host.value.devices, 0);
  EXPECT_EQ(read({{"RATSEG_HOST_DEVICES", "0"}}).host.error, "");
}

TEST(Environment, NamesVariableRangeAndValueOfAnErrorOfTheHost) {
  EXPECT_EQ(read({{"RATSEG_HOST_DEVICES", "65"}}).host.error,
            "ERROR: RATSEG_HOST_DEVICES must be a whole number from 0 to 64, but is \"65\"");
  EXPECT_EQ(read({{"RATSEG_HOST_PEER", "yes"}}).host.error,
            "ERROR: RATSEG_HOST_PEER must be a whole number from 0 to 1, but is \"yes\"");
  EXPECT_EQ(read({{"RATSEG_HOST_MEMORY", "0"}}).host.error,
            "ERROR: RATSEG_HOST_MEMORY must be a whole number from 1 to 1073741824, but is \"0\"");
}

TEST(Environment, RefusesWhatIsNoWholeNumberOfTheRange) {
  for (const char* value : {"-1", "1.5", "2x", " 2", "2 ", "0x10", "99999999999999999999"}) {
    const Environment e = read({{"RATSEG_HOST_PEER", "0"}, {"RATSEG_HOST_DEVICES", value}});
    EXPECT_NE(e.host.error, "") << value;
    EXPECT_EQ(e.host.value.devices, 1);
    EXPECT_TRUE(e.host.value.peer);
  }
}

TEST(Environment, NamesAnInstructionSet) {
  for (const HostIsa isa : {HostIsa::baseline, HostIsa::avx2}) {
    EXPECT_EQ(read({{"RATSEG_ISA", nameOf(isa)}}).isa.value, isa);
  }
  for (const char* name : {"mmx", "avx512"}) {
    EXPECT_EQ(read({{"RATSEG_ISA", name}}).isa.error,
              std::string("ERROR: RATSEG_ISA must be one that this program has and this processor "
                          "runs (baseline, avx2), but is \"") +
                  name + "\"");
  }
}

struct WishCase {
  const char* variable;
  unsigned StripWish::*wish;
  const char* expected;
  std::vector<std::pair<const char*, unsigned>> good;
  std::vector<const char*> bad;
};

const std::vector<WishCase>& wishCases() {
  static const std::vector<WishCase> cases = {
      {"RATSEG_STRIP_ROWS",
       &StripWish::rows,
       "a number from 1 to 64",
       {{"1", 1}, {"16", 16}, {"64", 64}},
       {"0", "65", "-1", "8 ", "x", "100", "1000000000000"}},
      {"RATSEG_STRIP_PIXELS",
       &StripWish::pixels,
       "1 or 2",
       {{"1", 1}, {"2", 2}},
       {"0", "3", "two"}},
      {"RATSEG_STRIP_THREADS",
       &StripWish::threads,
       "32, 64 or 128",
       {{"32", 32}, {"64", 64}, {"128", 128}},
       {"0", "33", "256", "1024"}}};
  return cases;
}

TEST(Environment, AsksForStrips) {
  for (const WishCase& c : wishCases()) {
    for (const auto& [text, value] : c.good) {
      const Environment e = read({{c.variable, text}});
      EXPECT_EQ(e.strips.error, "");
      EXPECT_EQ(e.strips.value.*c.wish, value) << c.variable << "=" << text;
    }
    for (const char* text : c.bad) {
      EXPECT_EQ(read({{c.variable, text}}).strips.error, std::string("ERROR: ") + c.variable +
                                                             " must be " + c.expected +
                                                             ", but is \"" + text + "\"");
    }
  }
}

TEST(Environment, OneWrongWishOfStripsIsNone) {
  const Environment e = read({{"RATSEG_STRIP_ROWS", "7"}, {"RATSEG_STRIP_THREADS", "7"}});
  EXPECT_NE(e.strips.error, "");
  EXPECT_EQ(e.strips.value.rows, 0u);
}

TEST(SettingDeathTest, AnErrorEndsTheProcessThatNeedsTheValue) {
  const Environment e = read({{"RATSEG_HOST_DEVICES", "many"}});
  EXPECT_EQ(e.device.orEnd(), DeviceChoice::automatic);
  EXPECT_EXIT(
      e.host.orEnd(), testing::ExitedWithCode(1),
      "^ERROR: RATSEG_HOST_DEVICES must be a whole number from 0 to 64, but is \"many\"\n$");
}

// In a process of its own, which has not read its environment yet.
TEST(EnvironmentDeathTest, IsReadOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const EnvironmentVariable device("RATSEG_DEVICE", "host");
  EXPECT_EXIT(
      {
        const bool before = environment().device.value == DeviceChoice::host;
        setenv("RATSEG_DEVICE", "nonsense", 1);
        std::exit(before && environment().device.orEnd() == DeviceChoice::host ? 0 : 2);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace namespace_ratseg
