// Words of a command line, each ended by a zero byte: Cmd::parseCmdLine and the typed values.

#include <charconv>
#include <cmath>
#include <limits>

#include "options_model.h"

namespace {

using namespace_ratseg::Cmd;

// Reads all of text as a number, by means that the parser does not use.
template <class T>
std::errc wholeNumber(const std::string& text, T& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return stop == end ? error : std::errc::invalid_argument;
}

template <class T>
void expectNumber(Cmd& cmd, const std::string& name, const std::string& text, T got) {
  T number = 0;
  T stored = 1;
  cmd.get(name, stored);
  const std::errc error = wholeNumber(text, number);
  if (error == std::errc() && std::isfinite(static_cast<double>(number))) {
    FUZZ_EXPECT(got == number, "the value of -" + name + " is the number that its word is");
    FUZZ_EXPECT(stored == number, "get stores the same number");
  }
  if constexpr (std::numeric_limits<T>::is_integer) {
    if (error == std::errc::result_out_of_range) {
      const T nearest =
          text[0] == '-' ? std::numeric_limits<T>::lowest() : std::numeric_limits<T>::max();
      FUZZ_EXPECT(got == 0, "a number out of the type's range counts as 0");
      FUZZ_EXPECT(stored == nearest, "get stores the nearest number of the type");
    }
  }
}

void expectValues(Cmd& cmd, const std::string& name, const std::vector<std::string>& values) {
  FUZZ_EXPECT(cmd.hasArg(name), "an option that was given is there");
  FUZZ_EXPECT(cmd.numOptions(name) == values.size(), "the values are counted");
  FUZZ_EXPECT(cmd.getString(name, 0).empty(), "there is no value 0");
  FUZZ_EXPECT(cmd.getString(name, values.size() + 1).empty(), "there is none behind the last");
  for (std::size_t i = 0; i < values.size(); ++i) {
    FUZZ_EXPECT(cmd.getString(name, i + 1) == values[i], "values keep their order");
  }
  if (values.empty()) {
    FUZZ_EXPECT(cmd.getBool(name), "a flag is true");
    return;
  }
  if (values[0] == "1") FUZZ_EXPECT(cmd.getBool(name), "1 is true");
  if (values[0] == "0") FUZZ_EXPECT(!cmd.getBool(name), "0 is false");
  expectNumber(cmd, name, values[0], cmd.getInt(name));
  expectNumber(cmd, name, values[0], cmd.getSize(name));
  expectNumber(cmd, name, values[0], cmd.getFloat(name));
  expectNumber(cmd, name, values[0], cmd.getDouble(name));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> words =
      fuzz::splitAtZeros({reinterpret_cast<const char*>(data), size});
  const fuzz::CommandLine line(words);
  Cmd cmd;
  cmd.parseCmdLine(line.argc(), line.argv());
  const fuzz::Options model = fuzz::modelOfCommandLine(words);
  FUZZ_EXPECT(cmd.values == model, "the options are those of the words");
  for (const auto& [name, values] : model) expectValues(cmd, name, values);
  fuzz::expectRoundTrip(cmd);
  return 0;
}
