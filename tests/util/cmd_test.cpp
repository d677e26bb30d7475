#include "util/cmd.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <locale>
#include <string>
#include <type_traits>
#include <vector>

#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;
using testing::Key;
using testing::Pair;

using Words = std::vector<const char*>;

Cmd commandLine(Words words) {
  words.insert(words.begin(), "program");
  Cmd cmd;
  cmd.parseCmdLine(static_cast<int>(words.size()), words.data());
  return cmd;
}

void writeText(const std::string& file, const std::string& text) {
  std::ofstream(file, std::ios::binary) << text;
}

std::string readText(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

Cmd optionFile(const std::string& text) {
  const TempDir dir;
  writeText(dir.file("options"), text);
  Cmd cmd;
  EXPECT_TRUE(cmd.parseFile(dir.file("options"), nullptr, 0));
  return cmd;
}

template <class Print>
std::string printed(Print&& print) {
  testing::internal::CaptureStdout();
  print();
  return testing::internal::GetCapturedStdout();
}

// The command line.

TEST(CmdLine, ValuesFollowTheNameOfTheirOption) {
  Cmd cmd = commandLine({"-a", "1", "2", "-b"});
  EXPECT_THAT(cmd.values, ElementsAre(Pair("a", ElementsAre("1", "2")), Pair("b", IsEmpty())));
  EXPECT_TRUE(cmd.hasArg("b"));
  EXPECT_EQ(cmd.numOptions("a"), 2u);
  EXPECT_EQ(cmd.numOptions("b"), 0u);
  EXPECT_TRUE(cmd.getBool("b"));
}

TEST(CmdLine, DigitAfterTheMinusSignMakesAValue) {
  Cmd cmd = commandLine({"-lambda", "-5", "-mu", "-0.5"});
  EXPECT_EQ(cmd.getFloat("lambda"), -5.0f);
  EXPECT_EQ(cmd.getFloat("mu"), -0.5f);
  EXPECT_FALSE(cmd.hasArg("5"));
  for (const char digit : std::string("0123456789")) {
    const std::string word = std::string("-") + digit;
    EXPECT_EQ(commandLine({"-a", word.c_str()}).getString("a"), word);
  }
  EXPECT_TRUE(commandLine({"-/"}).hasArg("/"));
  EXPECT_TRUE(commandLine({"-:"}).hasArg(":"));
}

TEST(CmdLine, MinusSignAndNoDigitMakesAName) {
  const Cmd cmd = commandLine({"-a", "1", "-.5", "2", "--long", "3"});
  EXPECT_THAT(cmd.values, ElementsAre(Pair("-long", ElementsAre("3")), Pair(".5", ElementsAre("2")),
                                      Pair("a", ElementsAre("1"))));
}

TEST(CmdLine, LoneMinusSignIsTheEmptyName) {
  Cmd cmd = commandLine({"-a", "1", "-", "2"});
  EXPECT_EQ(cmd.getInt("a"), 1);
  EXPECT_EQ(cmd.getInt(""), 2);
}

TEST(CmdLine, LastOccurrenceKeepsItsValuesOnly) {
  EXPECT_THAT(commandLine({"-a", "1", "2", "-b", "-a", "3"}).values,
              ElementsAre(Pair("a", ElementsAre("3")), Pair("b", IsEmpty())));
  EXPECT_THAT(commandLine({"-a", "1", "-a"}).values, ElementsAre(Pair("a", IsEmpty())));
}

TEST(CmdLine, ValuesBeforeTheFirstOptionAreIgnored) {
  EXPECT_THAT(commandLine({"x", "-3", "-a", "1"}).values, ElementsAre(Pair("a", ElementsAre("1"))));
}

TEST(CmdLine, FirstWordIsTheProgram) {
  const char* const argv[] = {"-a", "-b"};
  Cmd cmd;
  cmd.parseCmdLine(2, argv);
  EXPECT_THAT(cmd.values, ElementsAre(Key("b")));
}

TEST(CmdLine, WordsAreTakenAsTheyAre) {
  Cmd cmd = commandLine({"-image", "Bild \xC3\xBC 1.png", "-b", ""});
  std::string image;
  cmd.get("image", image);
  EXPECT_EQ(image, "Bild \xC3\xBC 1.png");
  EXPECT_EQ(cmd.getString("image"), "Bild \xC3\xBC 1.png");
  EXPECT_EQ(cmd.numOptions("b"), 1u);
}

TEST(CmdLine, NamesAreOrderedByBytes) {
  EXPECT_THAT(commandLine({"-b", "-a", "-B", "-aa", "-\xC3\xBC"}).values,
              ElementsAre(Key("B"), Key("a"), Key("aa"), Key("b"), Key("\xC3\xBC")));
}

// The option file.

TEST(CmdFile, LineIsANameWithOrWithoutMinusSignAndItsValues) {
  EXPECT_THAT(optionFile("-a 1 -2 -b\nc\t3   4 \n\n   -d\n- 5\n--e 6").values,
              ElementsAre(Pair("", ElementsAre("5")), Pair("-e", ElementsAre("6")),
                          Pair("a", ElementsAre("1", "-2", "-b")), Pair("c", ElementsAre("3", "4")),
                          Pair("d", IsEmpty())));
}

TEST(CmdFile, CommentsEndALine) {
  EXPECT_THAT(optionFile("# x 1\n"
                         "%x 2\n"
                         "  // x 3\n"
                         "a 1 #2 3\n"
                         "b 1 % 2\n"
                         "c 1 //2 3\n"
                         "d #\n"
                         "e 1#2 3%4 http://5 / 6\n")
                  .values,
              ElementsAre(Pair("a", ElementsAre("1")), Pair("b", ElementsAre("1")),
                          Pair("c", ElementsAre("1")), Pair("d", IsEmpty()),
                          Pair("e", ElementsAre("1#2", "3%4", "http://5", "/", "6"))));
}

TEST(CmdFile, LaterLineReplacesTheValues) {
  EXPECT_THAT(optionFile("a 1 2\n-a 3\nb 4\nb\n").values,
              ElementsAre(Pair("a", ElementsAre("3")), Pair("b", IsEmpty())));
}

TEST(CmdFile, LinesMayEndWithCarriageReturns) {
  EXPECT_THAT(optionFile("a 1\r\n\r\nb 2\r\n").values,
              ElementsAre(Pair("a", ElementsAre("1")), Pair("b", ElementsAre("2"))));
}

TEST(CmdFile, FirstFolderThatHasTheFileIsUsed) {
  const TempDir dir;
  for (const char* folder : {"one", "two", "three"}) {
    std::filesystem::create_directory(dir.path() / folder);
  }
  writeText(dir.file("two/options"), "folder two");
  writeText(dir.file("three/options"), "folder three");
  const std::string plain[] = {dir.file("one"), dir.file("two"), dir.file("three")};
  const std::string slash[] = {dir.file("three/"), dir.file("two/")};
  Cmd cmd;
  EXPECT_TRUE(cmd.parseFile("options", plain, 3));
  EXPECT_EQ(cmd.getString("folder"), "two");
  EXPECT_TRUE(cmd.parseFile("options", slash, 2));
  EXPECT_EQ(cmd.getString("folder"), "three");
  writeText(dir.file("two/ratseg-test-options"), "");
  EXPECT_FALSE(cmd.parseFile("ratseg-test-options", plain, 1)) << "the second folder is not meant";
}

TEST(CmdFile, NameAsItStandsIsTheLastResort) {
  const TempDir dir;
  writeText(dir.file("options"), "found here");
  const std::string folders[] = {dir.file("missing")};
  for (const int count : {1, 0}) {
    Cmd cmd;
    EXPECT_TRUE(cmd.parseFile(dir.file("options"), folders, count));
    EXPECT_EQ(cmd.getString("found"), "here");
  }
  Cmd cmd;
  EXPECT_TRUE(cmd.parseFile(dir.file("options"), nullptr, 1));
  EXPECT_EQ(cmd.getString("found"), "here");
}

TEST(CmdFile, FoldersComeBeforeTheNameAsItStands) {
  const TempDir dir;
  const std::string name = dir.file("options");
  const std::string folder = dir.file("root");
  std::filesystem::create_directories(folder + dir.path().string());
  writeText(name, "found here");
  writeText(folder + name, "found below");
  Cmd cmd;
  EXPECT_TRUE(cmd.parseFile(name, &folder, 1));
  EXPECT_EQ(cmd.getString("found"), "below");
}

TEST(CmdFile, EmptyFolderIsTheRoot) {
  const TempDir dir;
  writeText(dir.file("options"), "found here");
  const std::string folder;
  Cmd cmd;
  EXPECT_TRUE(cmd.parseFile(dir.file("options").substr(1), &folder, 1));
  EXPECT_EQ(cmd.getString("found"), "here");
}

TEST(CmdFile, MissingFileIsSilentlyFalse) {
  const TempDir dir;
  const std::string folders[] = {dir.path().string()};
  Cmd cmd;
  EXPECT_EQ(printed([&] { EXPECT_FALSE(cmd.parseFile("ratseg-no-such-file", folders, 1)); }), "");
  EXPECT_THAT(cmd.values, IsEmpty());
}

TEST(CmdFile, OtherThanARegularFileOfAtMost1MiBIsSilentlyFalse) {
  const TempDir dir;
  Cmd cmd;
  ASSERT_EQ(mkfifo(dir.file("pipe").c_str(), 0600), 0);
  writeText(dir.file("large"), "a 1\n" + std::string(Cmd::kMaxFileBytes, '#'));
  for (const std::string& file : {dir.file("pipe"), dir.path().string(), dir.file("large")}) {
    EXPECT_EQ(printed([&] { EXPECT_FALSE(cmd.parseFile(file, nullptr, 0)); }), "") << file;
  }
  EXPECT_THAT(cmd.values, IsEmpty());
  writeText(dir.file("large"), "a 1\n" + std::string(Cmd::kMaxFileBytes - 4, '#'));
  EXPECT_TRUE(cmd.parseFile(dir.file("large"), nullptr, 0));
  EXPECT_EQ(cmd.getInt("a"), 1);
}

// Both.

class CmdParse : public testing::Test {
 protected:
  void SetUp() override { writeText(file_, "a 1 2\nb 3\n"); }

  const TempDir dir_;
  const std::string file_ = dir_.file("options");
  const char* argv_[4] = {"program", "-a", "7", "-c"};
};

TEST_F(CmdParse, CommandLineReplacesValuesOfTheFile) {
  const Cmd cmd(4, argv_, file_, nullptr, 0);
  EXPECT_THAT(cmd.values, ElementsAre(Pair("a", ElementsAre("7")), Pair("b", ElementsAre("3")),
                                      Pair("c", IsEmpty())));
}

TEST_F(CmdParse, ConstructorSearchesTheFolders) {
  const std::string folder = dir_.path().string();
  Cmd cmd(1, argv_, "options", &folder, 1);
  EXPECT_EQ(cmd.getInt("b"), 3);
}

TEST_F(CmdParse, ConstructorIgnoresAMissingFile) {
  const Cmd cmd(4, argv_, dir_.file("missing"), nullptr, 0);
  EXPECT_THAT(cmd.values, ElementsAre(Key("a"), Key("c")));
}

TEST_F(CmdParse, ReturnsWhetherTheFileWasRead) {
  Cmd cmd;
  EXPECT_TRUE(cmd.parse(4, argv_, file_, nullptr, 0));
  EXPECT_FALSE(cmd.parse(4, argv_, dir_.file("missing"), nullptr, 0));
  EXPECT_THAT(cmd.values, ElementsAre(Key("a"), Key("c")));
  EXPECT_TRUE(cmd.parse(4, argv_, "", nullptr, 0));
}

TEST_F(CmdParse, ForgetsWhatWasThereBefore) {
  Cmd cmd = commandLine({"-old", "1"});
  cmd.setDesc("old", "int", "text");
  cmd.parse(4, argv_, "", nullptr, 0);
  EXPECT_THAT(cmd.values, ElementsAre(Key("a"), Key("c")));
  EXPECT_THAT(cmd.descriptions, IsEmpty());
}

TEST_F(CmdParse, NoWordsLeaveTheFileAlone) {
  Cmd cmd;
  EXPECT_TRUE(cmd.parse(4, nullptr, file_, nullptr, 0));
  EXPECT_THAT(cmd.values, ElementsAre(Key("a"), Key("b")));
  EXPECT_TRUE(cmd.parse(0, argv_, file_, nullptr, 0));
  EXPECT_THAT(cmd.values, ElementsAre(Key("a"), Key("b")));
}

TEST(Cmd, IsEmptyAtFirstAndAfterClear) {
  Cmd cmd;
  EXPECT_THAT(cmd.values, IsEmpty());
  EXPECT_THAT(cmd.descriptions, IsEmpty());
  cmd = commandLine({"-a", "1"});
  cmd.getInt("a");
  cmd.clear();
  EXPECT_THAT(cmd.values, IsEmpty());
  EXPECT_THAT(cmd.descriptions, IsEmpty());
  EXPECT_TRUE(std::has_virtual_destructor_v<Cmd>);
}

// Values.

TEST(CmdGet, ValuesAreNumberedFromOne) {
  Cmd cmd = commandLine({"-a", "x", "7"});
  EXPECT_EQ(cmd.getString("a"), "x");
  EXPECT_EQ(cmd.getString("a", 1), "x");
  EXPECT_EQ(cmd.getString("a", 2), "7");
  EXPECT_EQ(cmd.getInt("a", 2), 7);
  EXPECT_EQ(cmd.getSize("a", 2), 7u);
  EXPECT_EQ(cmd.getFloat("a", 2), 7.0f);
  EXPECT_EQ(cmd.getDouble("a", 2), 7.0);
}

TEST(CmdGet, MissingValuesAreEmptyAndZero) {
  Cmd cmd = commandLine({"-a", "1", "-b"});
  for (const std::size_t i : {std::size_t{0}, std::size_t{2}, static_cast<std::size_t>(-1)}) {
    EXPECT_EQ(cmd.getString("a", i), "") << i;
    EXPECT_EQ(cmd.getInt("a", i), 0) << i;
  }
  for (const char* name : {"b", "absent"}) {
    EXPECT_EQ(cmd.getString(name), "") << name;
    EXPECT_EQ(cmd.getInt(name), 0) << name;
    EXPECT_EQ(cmd.getSize(name), 0u) << name;
    EXPECT_EQ(cmd.getFloat(name), 0.0f) << name;
    EXPECT_EQ(cmd.getDouble(name), 0.0) << name;
  }
  EXPECT_EQ(cmd.numOptions("absent"), 0u);
  EXPECT_FALSE(cmd.hasArg("absent"));
}

TEST(CmdGet, NumbersAreReadByStreamExtraction) {
  Cmd cmd = commandLine({"-a", "1e-3", "5abc", "+4", "3.9", "18446744073709551615"});
  EXPECT_EQ(cmd.getDouble("a", 1), 1e-3);
  EXPECT_EQ(cmd.getFloat("a", 1), 1e-3f);
  EXPECT_EQ(cmd.getInt("a", 2), 5);
  EXPECT_EQ(cmd.getInt("a", 3), 4);
  EXPECT_EQ(cmd.getInt("a", 4), 3);
  EXPECT_EQ(cmd.getSize("a", 5), std::numeric_limits<std::size_t>::max());
}

TEST(CmdGet, NumbersAreReadInTheCLocaleWhateverThePrograms) {
  struct Comma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new Comma));
  Cmd cmd = commandLine({"-a", "2.5"});
  EXPECT_EQ(cmd.getDouble("a"), 2.5);
  std::locale::global(before);
}

TEST(CmdGet, WhatDoesNotConvertIsZeroWithoutAMessage) {
  Cmd cmd = commandLine({"-a", "abc", "", "99999999999999999999", "1e999"});
  EXPECT_EQ(printed([&] {
              for (const std::size_t i : {1, 2, 3}) {
                EXPECT_EQ(cmd.getInt("a", i), 0) << i;
                EXPECT_EQ(cmd.getSize("a", i), 0u) << i;
              }
              for (const std::size_t i : {1, 2, 4}) {
                EXPECT_EQ(cmd.getFloat("a", i), 0.0f) << i;
                EXPECT_EQ(cmd.getDouble("a", i), 0.0) << i;
              }
            }),
            "");
}

TEST(CmdGet, BoolIsAFlagOrAStreamBoolean) {
  Cmd cmd = commandLine({"-flag", "-one", "1", "-zero", "0", "-two", "2", "-word", "true"});
  EXPECT_FALSE(cmd.getBool("absent"));
  EXPECT_TRUE(cmd.getBool("flag"));
  EXPECT_TRUE(cmd.getBool("one"));
  EXPECT_FALSE(cmd.getBool("zero"));
  EXPECT_TRUE(cmd.getBool("two"));
  EXPECT_FALSE(cmd.getBool("word"));
}

TEST(CmdGet, TargetReceivesTheFirstValue) {
  Cmd cmd = commandLine({"-a", "5", "6"});
  std::string text;
  int whole = 0;
  float single = 0;
  double number = 0;
  std::size_t size = 0;
  bool flag = false;
  cmd.get("a", text);
  cmd.get("a", whole);
  cmd.get("a", single);
  cmd.get("a", number);
  cmd.get<std::size_t>("a", size);
  cmd.get("a", flag);
  EXPECT_EQ(text, "5");
  EXPECT_EQ(whole, 5);
  EXPECT_EQ(single, 5.0f);
  EXPECT_EQ(number, 5.0);
  EXPECT_EQ(size, 5u);
  EXPECT_TRUE(flag);
  bool zero = true;
  commandLine({"-z", "0"}).get("z", zero);
  EXPECT_FALSE(zero);
}

TEST(CmdGet, TargetKeepsItsDefaultWithoutAValue) {
  Cmd cmd = commandLine({"-flag"});
  for (const char* name : {"flag", "absent"}) {
    std::string text = "default";
    int whole = 1;
    float single = 2;
    double number = 3;
    std::size_t size = 4;
    bool flag = false;
    cmd.get(name, text);
    cmd.get(name, whole);
    cmd.get(name, single);
    cmd.get(name, number);
    cmd.get(name, size);
    cmd.get(name, flag);
    EXPECT_EQ(text, "default");
    EXPECT_EQ(whole, 1);
    EXPECT_EQ(single, 2.0f);
    EXPECT_EQ(number, 3.0);
    EXPECT_EQ(size, 4u);
    EXPECT_FALSE(flag);
  }
}

TEST(CmdGet, TargetOfAWordIsZeroAndOfALargeNumberTheLargest) {
  Cmd cmd = commandLine({"-a", "abc", "-b", "99999999999"});
  int whole = 7;
  float single = 7;
  cmd.get("a", whole);
  cmd.get("a", single);
  EXPECT_EQ(whole, 0);
  EXPECT_EQ(single, 0.0f);
  cmd.get("b", whole);
  EXPECT_EQ(whole, std::numeric_limits<int>::max());
}

TEST(CmdGet, EmptyValueLeavesNumbersAndEmptiesStrings) {
  Cmd cmd = commandLine({"-a", ""});
  std::string text = "default";
  int whole = 7;
  double number = 7;
  bool flag = true;
  EXPECT_EQ(printed([&] {
              cmd.get("a", text);
              cmd.get("a", whole);
              cmd.get("a", number);
              cmd.get("a", flag);
            }),
            "");
  EXPECT_EQ(text, "");
  EXPECT_EQ(whole, 7);
  EXPECT_EQ(number, 7.0);
  EXPECT_TRUE(flag);
}

// Descriptions.

TEST(CmdDesc, IsTheTypeAndThenTheText) {
  const auto& [type, text] = Cmd::ArgDesc{.type = "int", .desc = "steps"};
  EXPECT_EQ(type, "int");
  EXPECT_EQ(text, "steps");
}

TEST(CmdDesc, FirstDescriptionStays) {
  Cmd cmd;
  cmd.setDesc("a", "int", "first");
  cmd.setDesc("a", "float", "second");
  cmd.getDouble("a");
  ASSERT_THAT(cmd.descriptions, ElementsAre(Key("a")));
  EXPECT_EQ(cmd.descriptions["a"].type, "int");
  EXPECT_EQ(cmd.descriptions["a"].desc, "first");
}

std::string typeAfter(void (*read)(Cmd&)) {
  Cmd cmd;
  read(cmd);
  EXPECT_THAT(cmd.descriptions, ElementsAre(Key("a")));
  EXPECT_EQ(cmd.descriptions["a"].desc, "");
  return cmd.descriptions["a"].type;
}

template <class T>
void getA(Cmd& cmd) {
  T target{};
  cmd.get("a", target);
}

TEST(CmdDesc, EveryReadDescribesItsType) {
  EXPECT_EQ(typeAfter([](Cmd& cmd) { cmd.getString("a"); }), "string");
  EXPECT_EQ(typeAfter([](Cmd& cmd) { cmd.getDouble("a"); }), "double");
  EXPECT_EQ(typeAfter([](Cmd& cmd) { cmd.getFloat("a"); }), "float");
  EXPECT_EQ(typeAfter([](Cmd& cmd) { cmd.getInt("a"); }), "int");
  EXPECT_EQ(typeAfter([](Cmd& cmd) { cmd.getSize("a"); }), "size_t");
  EXPECT_EQ(typeAfter([](Cmd& cmd) { cmd.getBool("a"); }), "bool");
  EXPECT_EQ(typeAfter(getA<std::string>), "string");
  EXPECT_EQ(typeAfter(getA<double>), "double");
  EXPECT_EQ(typeAfter(getA<float>), "float");
  EXPECT_EQ(typeAfter(getA<int>), "int");
  EXPECT_EQ(typeAfter(getA<std::size_t>), "size_t");
  EXPECT_EQ(typeAfter(getA<bool>), "bool");
}

TEST(CmdDesc, QueriesDescribeNothing) {
  const Cmd cmd = commandLine({"-a", "1"});
  EXPECT_TRUE(cmd.hasArg("a"));
  EXPECT_EQ(cmd.numOptions("a"), 1u);
  EXPECT_THAT(cmd.descriptions, IsEmpty());
}

// Listings.

TEST(CmdPrint, AllOptionsByName) {
  const Cmd cmd = commandLine({"-b", "1", "two", "-flag", "-a", "x"});
  EXPECT_EQ(printed([&] { cmd.printAll(); }), "a: x\nb: 1, two\nflag (no args)\n");
  EXPECT_EQ(printed([] { Cmd().printAll(); }), "");
}

// Prints the usage where a death test reads it.
void usageOnStandardError(const Cmd& cmd) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  cmd.printUsageAndExit();
}

TEST(CmdUsageDeathTest, ListsDescriptionsPaddedAndExitsWithSuccess) {
  Cmd cmd;
  cmd.setDesc("iterations", "size_t", "number of steps");
  cmd.setDesc("mu", "float", "");
  cmd.setDesc("lambda", "", "only a text");
  cmd.setDesc("x", "", "");
  EXPECT_EXIT(usageOnStandardError(cmd), testing::ExitedWithCode(0),
              Eq("iterations (size_t): number of steps\n"
                 "lambda     : only a text\n"
                 "mu         (float )\n"
                 "x          \n"));
}

TEST(CmdUsageDeathTest, ExitsWithSuccessWithoutDescriptions) {
  EXPECT_EXIT(usageOnStandardError(Cmd()), testing::ExitedWithCode(0), Eq(""));
}

// Saving.

TEST(CmdSave, WritesAnOptionFileThatReadsBack) {
  const TempDir dir;
  const std::string file = dir.file("saved");
  const Cmd cmd = commandLine({"-b", "1", "-2", "-flag", "-a", "x"});
  EXPECT_EQ(printed([&] { cmd.saveToFile(file); }), "writing config to file " + file + " ...\n");
  EXPECT_EQ(readText(file), "a x\nb 1 -2\nflag\n");
  Cmd again;
  EXPECT_TRUE(again.parseFile(file, nullptr, 0));
  EXPECT_EQ(again.values, cmd.values);
}

TEST(CmdSave, NameWithAPercentSignIsLeftOutButNotItsValues) {
  const TempDir dir;
  const Cmd cmd = commandLine({"-%note", "1", "2", "-%", "-a%", "3", "-#b", "4"});
  printed([&] { cmd.saveToFile(dir.file("saved")); });
  EXPECT_EQ(readText(dir.file("saved")), "#b 4\n\n 1 2\na% 3\n");
}

TEST(CmdSave, SaysWhenTheFileCannotBeWritten) {
  const TempDir dir;
  const std::string file = dir.file("missing/saved");
  const Cmd cmd = commandLine({"-a"});
  EXPECT_EQ(printed([&] { cmd.saveToFile(file); }), "ERROR writing file " + file + "\n");
}

// Without a Cmd.

bool getParam(Words words, bool& target) {
  return GetParam::get<bool>("a", target, static_cast<int>(words.size()), words.data());
}

bool paramOr(bool initial, const Words& words) {
  EXPECT_TRUE(getParam(words, initial));
  return initial;
}

TEST(GetParam, AbsentOptionLeavesTheTarget) {
  for (const Words& words : {Words{"program"}, Words{"-a"}, Words{"-a", "a", "--a", "-ab", "-A"}}) {
    for (const bool initial : {false, true}) {
      bool target = initial;
      EXPECT_FALSE(getParam(words, target));
      EXPECT_EQ(target, initial);
    }
  }
}

TEST(GetParam, FlagIsTrue) {
  EXPECT_TRUE(paramOr(false, {"program", "-a"}));
  EXPECT_TRUE(paramOr(false, {"program", "-a", "-b", "0"}));
  EXPECT_TRUE(paramOr(false, {"program", "-a", "-0"}));
  EXPECT_TRUE(paramOr(false, {"program", "-a", "-"}));
}

TEST(GetParam, ValueIsAStreamBoolean) {
  EXPECT_TRUE(paramOr(false, {"program", "-a", "1"}));
  EXPECT_FALSE(paramOr(true, {"program", "-a", "0", "1"}));
}

TEST(GetParam, LastOccurrenceCounts) {
  EXPECT_FALSE(paramOr(true, {"program", "-a", "-a", "0"}));
  EXPECT_TRUE(paramOr(false, {"program", "-a", "0", "-b", "-a"}));
}

}  // namespace
}  // namespace namespace_ratseg
