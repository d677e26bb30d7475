#ifndef RATSEG_FILES_FILE_ERROR_H
#define RATSEG_FILES_FILE_ERROR_H

#include <stdexcept>
#include <string>

namespace namespace_ratseg {

// The reason why a file cannot be used. what() continues a sentence after "a file that": "is
// damaged: ...", "has 3 pages".
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace namespace_ratseg

#endif
