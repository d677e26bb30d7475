#ifndef RATSEG_APP_OPTIONS_H
#define RATSEG_APP_OPTIONS_H

#include <string>

#include "app/load_picture.h"
#include "app/progress.h"

namespace namespace_ratseg {

class Cmd;
struct Params;

// The settings of the command line, beside the solver's parameters.
struct Options {
  std::string image;        // file to segment
  std::string dataterm;     // packed array of w * h * n floats
  std::string proportions;  // text, mean and sigma per foreground label
  float weightcoeff = 5;    // gamma of the edge weight; 0 = no edge weight
  std::string outprefix = "out";
  int gpu = 0;          // device number
  bool timing = false;  // report the seconds of each stage
  bool strict = false;  // take warnings as errors
  ProgressWanted progress = ProgressWanted::automatic;
  PictureLimits limits;  // -max-megapixels and -max-memory
};

// Prints all options with their descriptions and defaults.
void printUsage();

// Reads the options, those of the solver (lambda, mu, eps, Nsteps, tolerance, accelerate) into
// par, and echoes each but -device, -timing, -tolerance, -accelerate, -strict, -progress,
// -max-megapixels and -max-memory with its description. Ends the process with status 1 at the first
// required one that is missing, at a lambda or an eps that nothing can be certified with when there
// is a tolerance, and at an input that a result would be written over. Warns on standard error of
// unknown options, of values that are not numbers or make no sense, and of an output folder that
// cannot be written to.
Options readOptions(Cmd& cmd, Params& par);

// Chooses the backend by -device (auto, cuda or host), or by the environment variable RATSEG_DEVICE
// when the option is not given (device/selection.h). Ends the process with status 1 at any other
// value.
void chooseDevice(Cmd& cmd);

}  // namespace namespace_ratseg

#endif
