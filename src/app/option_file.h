#ifndef RATSEG_APP_OPTION_FILE_H
#define RATSEG_APP_OPTION_FILE_H

#include <string>

namespace namespace_ratseg {

// The option file beside the program, which word 0 of the command line names: that word with ".cfg"
// added where it has a slash; otherwise the program was found through PATH, and the file is beside
// it under its real name. Empty when there is none, or none that can be used (util/small_file.h).
//
// tell: says on standard error which file it is, and warns of one that cannot be used and of one in
// the current folder that is not read.
std::string findOptionFile(const std::string& word0, bool tell);

}  // namespace namespace_ratseg

#endif
