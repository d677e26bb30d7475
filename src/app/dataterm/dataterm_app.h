#ifndef RATSEG_APP_DATATERM_DATATERM_APP_H
#define RATSEG_APP_DATATERM_DATATERM_APP_H

namespace namespace_ratseg {

// The program ratseg-dataterm: from an image and a scribble picture it makes the data term file
// that ratseg reads, and from a label picture the proportions file. Returns the exit status: 0, or
// 1 after one line on standard error that says what is wrong. Without arguments it prints the usage
// screen and returns 0.
int runDatatermApp(int argc, const char* const* argv);

}  // namespace namespace_ratseg

#endif
