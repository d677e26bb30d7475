#ifndef RATSEG_APP_DATATERM_MODEL_OPTIONS_H
#define RATSEG_APP_DATATERM_MODEL_OPTIONS_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace namespace_ratseg {

class Cmd;

// What makes costs of pictures and marks: the options of ratseg-dataterm about that.
struct ModelOptions {
  enum class Kind { colour, forest, both, file };

  Kind kind = Kind::both;    // -model
  bool given = false;        // whether -model is there
  std::string file;          // of a kept model; empty unless kind is file
  std::string save;          // -save-model; empty: not kept
  std::optional<float> mix;  // -mix, 0 to 1: the part of the forest
  std::optional<bool> hard;  // -strokes: marked pixels keep their labels
  std::vector<std::pair<std::size_t, std::string>> forbidden;  // -forbid: label, mask

  // Whether other labels are too dear on marked pixels.
  bool hardStrokes() const { return hard.value_or(!(given && kind == Kind::colour)); }

  // Reads them. Throws InputError.
  static ModelOptions parse(const Cmd& cmd);

  static bool isOne(const std::string& name);
};

}  // namespace namespace_ratseg

#endif
