#include "app/dataterm/model_options.h"

#include <charconv>
#include <cstddef>

#include "app/dataterm/input_error.h"
#include "device/quoted.h"
#include "util/cmd.h"

namespace namespace_ratseg {

namespace {

using Values = std::vector<std::string>;

// The one value of an option; none where it was not given.
std::optional<std::string> valueOf(const Cmd& cmd, const std::string& name,
                                   const std::string& expected) {
  const auto found = cmd.values.find(name);
  if (found == cmd.values.end()) return {};
  const Values& values = found->second;
  if (values.empty() || values[0].empty()) throw InputError("-" + name, expected, "nothing");
  if (values.size() > 1) {
    throw InputError("-" + name, expected, std::to_string(values.size()) + " values");
  }
  return values[0];
}

// All of the text as a number.
template <class T>
bool isNumber(const std::string& text, T& value) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end;
}

void readModel(const Cmd& cmd, ModelOptions& options) {
  using Kind = ModelOptions::Kind;
  const auto model = valueOf(cmd, "model", "colour, forest, both or a file name");
  if (!model) return;
  options.given = true;
  options.kind = *model == "colour"   ? Kind::colour
                 : *model == "forest" ? Kind::forest
                 : *model == "both"   ? Kind::both
                                      : Kind::file;
  if (options.kind == Kind::file) options.file = *model;
}

void readMix(const Cmd& cmd, ModelOptions& options) {
  const std::string expected = "a number from 0 to 1";
  const auto mix = valueOf(cmd, "mix", expected);
  if (!mix) return;
  float value = -1;
  if (!isNumber(*mix, value) || !(value >= 0 && value <= 1)) {
    throw InputError("-mix", expected, inQuotes(*mix));
  }
  if (options.kind != ModelOptions::Kind::both) {
    throw InputError("-mix", "-model both, whose parts it says", "another model");
  }
  options.mix = value;
}

void readForbidden(const Cmd& cmd, ModelOptions& options) {
  const auto found = cmd.values.find("forbid");
  if (found == cmd.values.end()) return;
  const Values& values = found->second;
  const std::string expected = "a label and a mask picture, or several such pairs";
  if (values.empty() || values.size() % 2 != 0) {
    throw InputError("-forbid", expected,
                     std::to_string(values.size()) + (values.size() == 1 ? " value" : " values"));
  }
  for (std::size_t k = 0; k < values.size(); k += 2) {
    constexpr std::size_t kMostLabels = 255;
    std::size_t label = kMostLabels;
    if (!isNumber(values[k], label) || label >= kMostLabels || values[k + 1].empty()) {
      throw InputError("-forbid", expected, inQuotes(values[k] + " " + values[k + 1]));
    }
    options.forbidden.emplace_back(label, values[k + 1]);
  }
}

}  // namespace

ModelOptions ModelOptions::parse(const Cmd& cmd) {
  ModelOptions options;
  readModel(cmd, options);
  readMix(cmd, options);
  const std::string expected = "hard or soft";
  if (const auto strokes = valueOf(cmd, "strokes", expected)) {
    if (*strokes != "hard" && *strokes != "soft") {
      throw InputError("-strokes", expected, inQuotes(*strokes));
    }
    options.hard = *strokes == "hard";
  }
  if (const auto save = valueOf(cmd, "save-model", "a file name")) {
    options.save = *save;
    if (options.kind == Kind::colour || options.kind == Kind::file) {
      throw InputError("-save-model", "-model forest or both, which is kept", "another model");
    }
  }
  readForbidden(cmd, options);
  return options;
}

bool ModelOptions::isOne(const std::string& name) {
  for (const char* known : {"model", "mix", "strokes", "save-model", "forbid"}) {
    if (name == known) return true;
  }
  return false;
}

}  // namespace namespace_ratseg
