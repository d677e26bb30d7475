#ifndef RATSEG_APP_OPTION_VALUES_H
#define RATSEG_APP_OPTION_VALUES_H

// One option of ratseg: its texts, and how its value is read.

namespace namespace_ratseg {

class Cmd;

struct OptionText {
  const char* name;
  const char* kind;
  const char* description;
  const char* fallback;     // the default as the usage screen shows it; null = required
  const char* format = "";  // more lines, of the usage screen and of the error
};

// Reads the option into target, which holds the default, and echoes it with its description. Warns
// of a value that is missing, wrong or one of several, and of what is used instead. Ends the
// process with status 1 where the option is required and missing. T is string, float, int or
// size_t.
template <class T>
void readOption(Cmd& cmd, const OptionText& option, T& target);

// An option that is 0 (off, the default) or 1, which is not echoed. Any other value ends the
// process with status 1.
bool readSwitch(Cmd& cmd, const OptionText& option);

// An option that is a number from 0 (the default) on, which is not echoed. Any other value ends the
// process with status 1.
float readNumberFrom0(Cmd& cmd, const OptionText& option);

// Changes the limit, where the option is given, to its value, a number above 0; it is not echoed.
// Any other value ends the process with status 1.
void readLimit(Cmd& cmd, const OptionText& option, double& limit);

// Warns where the option has more values than the first, which is used.
void warnOfMoreValues(const Cmd& cmd, const OptionText& option);

}  // namespace namespace_ratseg

#endif
