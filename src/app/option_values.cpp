#include "app/option_values.h"

#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>
#include <type_traits>

#include "app/messages.h"
#include "util/cmd.h"

namespace namespace_ratseg {

namespace {

// True if the digits before the exponent are those of another number than 0.
bool hasDigits(const std::string& text) {
  return text.substr(0, text.find_first_of("eE")).find_first_of("123456789") != std::string::npos;
}

// True if text as a whole is a number that T holds; size_t takes no minus sign, and a float is not
// 0 unless the text is.
template <class T>
bool isNumber(const std::string& text) {
  if (std::is_unsigned_v<T> && text.find('-') != std::string::npos) return false;
  std::istringstream stream(text);
  stream.exceptions(std::ios::badbit);  // Lack of memory is not a bad value.
  stream.imbue(std::locale::classic());
  T number = 0;
  if (!(stream >> number) || !(stream >> std::ws).eof()) return false;
  return number != 0 || !hasDigits(text);
}

// Names what is used instead of a value that is missing or wrong.
std::string used(const std::string& text) {
  return text.empty() ? "" : "; " + inQuotes(text) + " is used";
}
template <class T>
std::string used(T number) {
  return (std::ostringstream() << "; " << number << " is used").str();
}

// Warns when the option's values are not one value of type T; taken is what they were read as.
template <class T>
void warnOfValues(Cmd& cmd, const OptionText& option, const T& taken) {
  const std::string name = std::string("-") + option.name;
  const std::size_t count = cmd.numOptions(option.name);
  if (cmd.hasArg(option.name) && count == 0) warnOfOption(name + " has no value" + used(taken));
  warnOfMoreValues(cmd, option);
  if constexpr (std::is_arithmetic_v<T>) {
    const std::string text = cmd.getString(option.name);
    if (count == 0 || isNumber<T>(text)) return;
    const char* expected = std::is_floating_point_v<T> ? "a number"
                           : std::is_unsigned_v<T>     ? "a whole number from 0 on"
                                                       : "a whole number";
    warnOfOption(name + " must be " + expected + ", but is " + inQuotes(text) + used(taken));
  }
}

// All values of the option as they stand.
std::string valuesOf(const Cmd& cmd, const OptionText& option) {
  std::string all;
  for (const std::string& value : cmd.values.at(option.name)) {
    all += (all.empty() ? "" : " ") + value;
  }
  return inQuotes(all);
}

}  // namespace

void warnOfMoreValues(const Cmd& cmd, const OptionText& option) {
  const std::size_t count = cmd.numOptions(option.name);
  if (count <= 1) return;
  warnOfOption(std::string("-") + option.name + " has " + std::to_string(count) +
               " values; only the first is used");
}

template <class T>
void readOption(Cmd& cmd, const OptionText& option, T& target) {
  cmd.get(option.name, target);
  const bool missing = option.fallback == nullptr && !cmd.hasArg(option.name);
  if (missing) {
    std::cout << "ERROR: Expected -" << option.name << " " << option.kind << "\n";
  } else {
    warnOfValues(cmd, option, target);
    std::cout << "-" << option.name << " " << target << "\n";
  }
  std::cout << option.description << std::endl;
  if (!missing) return;
  std::cout << option.format << std::flush;
  std::cerr << "ratseg: -help lists all options" << std::endl;
  std::exit(1);
}

template void readOption(Cmd&, const OptionText&, std::string&);
template void readOption(Cmd&, const OptionText&, float&);
template void readOption(Cmd&, const OptionText&, int&);
template void readOption(Cmd&, const OptionText&, std::size_t&);

bool readSwitch(Cmd& cmd, const OptionText& option) {
  if (!cmd.hasArg(option.name)) return false;
  const std::string text = cmd.getString(option.name);
  if (cmd.numOptions(option.name) != 1 || (text != "0" && text != "1")) {
    fail(std::string("ERROR: -") + option.name + " must be 0 or 1, but is " +
         valuesOf(cmd, option));
  }
  return text == "1";
}

float readNumberFrom0(Cmd& cmd, const OptionText& option) {
  if (!cmd.hasArg(option.name)) return 0.0f;
  const std::string text = cmd.getString(option.name);
  float value = 0.0f;
  cmd.get(option.name, value);
  const bool ok = cmd.numOptions(option.name) == 1 && isNumber<float>(text) && value >= 0.0f;
  if (!ok) {
    fail(std::string("ERROR: -") + option.name + " must be a number from 0 on, but is " +
         valuesOf(cmd, option));
  }
  return value;
}

void readLimit(Cmd& cmd, const OptionText& option, double& limit) {
  if (!cmd.hasArg(option.name)) return;
  const std::string text = cmd.getString(option.name);
  cmd.get(option.name, limit);
  if (cmd.numOptions(option.name) == 1 && isNumber<double>(text) && limit > 0) return;
  fail(std::string("ERROR: -") + option.name + " must be a number above 0, but is " +
       valuesOf(cmd, option));
}

}  // namespace namespace_ratseg
