#ifndef RATSEG_APP_DATATERM_FILE_OPTIONS_H
#define RATSEG_APP_DATATERM_FILE_OPTIONS_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace namespace_ratseg {

// The options of ratseg-dataterm that say how files are read, and what else it makes of them.
struct FileOptions {
  std::size_t page = 0;           // -page, from 1; 0: the only one
  std::size_t scribbledPage = 0;  // -scribbled-page, of -scribbled-image
  std::vector<float> range;       // -range: LOW HIGH, or a pair for each channel; empty: found
  std::string pictureOut;         // -picture-out
  std::string costs;              // -costs
  std::string probabilities;      // -probabilities
  std::string axes;               // -axes; empty: found
  bool listColours = false;       // -colours without a value
  std::string colours;            // -colours; empty: in the order of their hues
  bool turn = false;              // -turn
  std::string convert;            // -convert

  using Values = std::map<std::string, std::vector<std::string>>;

  // Whether a data term is given instead of scribbles.
  bool givesCosts() const { return !costs.empty() || !probabilities.empty(); }
  const std::string& costsFile() const { return costs.empty() ? probabilities : costs; }

  static bool isOne(const std::string& name);

  // Throws InputError for what cannot be run as it stands.
  static FileOptions parse(const Values& values);
};

// The lines of the usage screen about these options.
extern const char* const kFileOptionsUsage;

}  // namespace namespace_ratseg

#endif
