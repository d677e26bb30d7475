#ifndef RATSEG_APP_APP_RELEASE_RATSEG_H
#define RATSEG_APP_APP_RELEASE_RATSEG_H

namespace namespace_ratseg {

// The program. Constructing it is its whole run: options, inputs, solve, result files. A failure
// prints one line beginning with "ERROR" and ends the process with status 1; failures of writing
// result files are reported and change nothing else, but with -strict 1 the status.
class App_ReleaseRatSeg {
 public:
  // The arguments of main. argv[0] names the option file (app/option_file.h).
  App_ReleaseRatSeg(int argc, char** argv);
};

}  // namespace namespace_ratseg

#endif
