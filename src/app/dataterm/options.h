#ifndef RATSEG_APP_DATATERM_OPTIONS_H
#define RATSEG_APP_DATATERM_OPTIONS_H

#include <string>

#include "app/dataterm/file_options.h"
#include "app/dataterm/model_options.h"
#include "app/load_picture.h"

namespace namespace_ratseg {

// The command line of ratseg-dataterm.
struct DatatermOptions {
  std::string image;           // -image, required
  std::string scribbles;       // -scribbles, required unless files or a kept model say otherwise
  std::string scribbledImage;  // -scribbled-image; empty: the image
  std::string out;             // -out, required unless colours are only listed
  std::string truth;           // -truth; empty: no proportions file is written
  std::string proportions;     // -proportions, given together with -truth
  float sigma = 5;             // -sigma, > 0: width of the colour kernel in CIELAB units
  float thr = 10;              // -thr, > 0: greatest cost
  double spread = 0.02;        // -spread, >= 0: the sigma column of the proportions file
  bool sharesOfImage = false;  // -shares image (true) or foreground (false)
  std::string device;          // -device; empty: as RATSEG_DEVICE says
  bool strict = false;         // -strict: warnings are errors
  ModelOptions model;          // what makes the costs
  PictureLimits limits;        // -max-megapixels and -max-memory, > 0
  FileOptions files;           // other kinds of files

  // The cost of the void background label that -shares image appends: too dear to be chosen, and
  // finite, because the projection onto the simplex can lift a forbidden label.
  float voidCost() const { return 100 * thr; }

  // Throws InputError for whatever cannot be run as it stands: an option that is unknown, missing,
  // without its value or with more than one, or a value that is out of range.
  static DatatermOptions parse(int argc, const char* const* argv);
};

// The text that explains the program, printed when it is called without arguments or with -help.
extern const char* const kDatatermUsage;

}  // namespace namespace_ratseg

#endif
