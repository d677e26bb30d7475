#include "app/dataterm/page_choice.h"

#include "app/dataterm/input_error.h"

namespace namespace_ratseg {

std::size_t PageChoice::of(const std::string& file, std::size_t pages) const {
  const std::string found =
      "a file of " + std::to_string(pages) + (pages == 1 ? " page" : " pages");
  if (number == 0 && pages > 1) {
    throw InputError(file, option + " with one of its pages, counted from 1", found);
  }
  if (number > pages) {
    throw InputError(option + " " + std::to_string(number),
                     "a page of " + file + ", counted from 1", found);
  }
  return number == 0 ? 1 : number;
}

}  // namespace namespace_ratseg
