#ifndef RATSEG_PROJECT_PROJECT_H
#define RATSEG_PROJECT_PROJECT_H

// What somebody knows of a series of pictures and wants to measure in it: labels with their names
// and shares, strokes, settings. project_file.h reads and writes it as JSON, label_list.h reads its
// labels from a line of text.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace namespace_ratseg {

struct ProjectLabel {
  std::string name;
  std::optional<std::array<std::uint8_t, 3>> colour;  // red, green, blue
  std::optional<double> share;                        // part of the whole, 0 to 1
  bool takesRest = false;                             // its share is what the others leave
  std::optional<double> spread;                       // standard deviation of the share, as a part

  bool operator==(const ProjectLabel&) const = default;
};

// Strokes on one of the pictures: a picture of its size with label + 1 where label is marked.
struct ProjectStrokes {
  std::string picture;
  std::size_t page = 1;  // of the picture, the first is 1
  std::string strokes;

  bool operator==(const ProjectStrokes&) const = default;
};

struct InputRange {
  double low = 0, high = 0;  // values that become black and white, low < high

  bool operator==(const InputRange&) const = default;
};

struct Project {
  enum class Of { image, foreground };             // what shares are parts of
  enum class Over { automatic, picture, series };  // each picture has them, or all together

  std::vector<ProjectLabel> labels;  // with Of::foreground the last one is the background
  Of of = Of::image;
  Over over = Over::automatic;  // series where there is more than one picture
  std::vector<ProjectStrokes> strokes;
  std::string model = "both";  // or colour, forest, or the name of a model's file
  std::optional<double> mix;   // part of the forest in the costs, 0 to 1; none: chosen
  double boundary = 5;         // cost of a pixel of boundary, at least 0
  double weight = 1;           // of the shares; 0: none, 1: as usual
  double tolerance = 1e-3;     // of the certified gap, above 0
  std::optional<InputRange> range;

  bool operator==(const Project&) const = default;
};

// A share as the solver takes it.
struct KnownShare {
  double mean = 0, spread = 0;
};

// The spreads that words stand for, as parts: "measured" 0.02, "roughly" 0.05, "guess" 0.1. None
// for other words.
std::optional<double> spreadOfWord(const std::string& word);
inline constexpr double kUsualSpread = 0.02;

// The shares of all labels (with Of::foreground of all but the last); empty if no label has one.
// What a label takes that takes the rest has, unless it has a spread of its own, the one that
// follows from the others' as if they were independent. Throws std::runtime_error, with words that
// tell what is wrong, where only some labels have shares, where the rest is negative, and where
// shares without a rest do not sum to 1 within 0.005.
std::vector<KnownShare> knownShares(const Project& project);

}  // namespace namespace_ratseg

#endif
