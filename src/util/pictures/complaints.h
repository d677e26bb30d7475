#ifndef RATSEG_UTIL_PICTURES_COMPLAINTS_H
#define RATSEG_UTIL_PICTURES_COMPLAINTS_H

#include <string>
#include <vector>

namespace namespace_ratseg {

// Collects, as long as it lives, what Qt, its decoders and libtiff complain about, which they would
// print on standard error. There is one at a time in a process.
class Complaints {
 public:
  Complaints();
  ~Complaints();
  Complaints(const Complaints&) = delete;
  Complaints& operator=(const Complaints&) = delete;

  void add(const std::string& complaint);

  // The complaints collected: each once, as a line without control characters.
  std::vector<std::string> lines() const;

 private:
  struct Before;  // the handlers of before
  Before* before_;
};

}  // namespace namespace_ratseg

#endif
