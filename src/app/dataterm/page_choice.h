#ifndef RATSEG_APP_DATATERM_PAGE_CHOICE_H
#define RATSEG_APP_DATATERM_PAGE_CHOICE_H

#include <cstddef>
#include <string>

namespace namespace_ratseg {

// A page, counted from 1, and the option that says so; 0 is the only one that there is.
struct PageChoice {
  std::size_t number = 0;
  std::string option = "-page";

  // Throws InputError unless a file of so many pages has that one. Returns it.
  std::size_t of(const std::string& file, std::size_t pages) const;
};

}  // namespace namespace_ratseg

#endif
