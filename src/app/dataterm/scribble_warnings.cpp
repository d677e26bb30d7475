#include "app/dataterm/scribble_warnings.h"

#include <algorithm>
#include <numeric>
#include <sstream>

namespace namespace_ratseg {

namespace {

std::string costsThr(const DatatermOptions& options) {
  std::ostringstream text;
  text << "costs thr = " << options.thr << " everywhere";
  return text.str();
}

// One line per label, or one for all where they are many.
void warnOfUnmarkedLabels(const std::vector<std::size_t>& marks, const DatatermOptions& options,
                          std::vector<std::string>& lines) {
  constexpr std::size_t kListed = 5;
  std::size_t unmarked = 0;
  std::vector<std::string> one;
  std::string first;
  for (std::size_t k = 0; k < marks.size(); ++k) {
    if (marks[k] > 0) continue;
    ++unmarked;
    if (unmarked > kListed) continue;
    const std::string label = std::to_string(k);
    first += label + ", ";
    one.push_back("label " + label + " has no scribbles in " + options.scribbles + ": it " +
                  costsThr(options));
  }
  if (unmarked > kListed) {
    lines.push_back(std::to_string(unmarked) + " labels (" + first + "...) have no scribbles in " +
                    options.scribbles + ": each " + costsThr(options));
  } else {
    lines.insert(lines.end(), one.begin(), one.end());
  }
}

// Pixels of an unintended colour make labels of their own.
void warnOfStrayMarks(const std::vector<std::size_t>& marks, const DatatermOptions& options,
                      std::vector<std::string>& lines) {
  constexpr std::size_t kFew = 3;
  constexpr std::size_t kMany = 100 * kFew;
  if (marks.empty() || *std::max_element(marks.begin(), marks.end()) < kMany) return;
  for (std::size_t k = 0; k < marks.size(); ++k) {
    if (marks[k] == 0 || marks[k] > kFew) continue;
    const bool isBackground = k + 1 == marks.size() && !options.sharesOfImage;
    lines.push_back("label " + std::to_string(k) + (isBackground ? ", the background," : "") +
                    " has only " + std::to_string(marks[k]) +
                    (marks[k] == 1 ? " scribble pixel in " : " scribble pixels in ") +
                    options.scribbles + ": a stray mark?");
  }
}

}  // namespace

std::vector<std::string> scribbleWarnings(const std::vector<std::size_t>& marks, std::size_t pixels,
                                          const DatatermOptions& options) {
  std::vector<std::string> lines;
  std::size_t scribbled = marks.size();
  while (scribbled > 0 && marks[scribbled - 1] == 0) --scribbled;
  if (scribbled < marks.size()) {
    const std::string last = std::to_string(marks.size() - 1);
    lines.push_back(options.truth + " holds label numbers up to " + last + ", but " +
                    options.scribbles + " marks labels up to " + std::to_string(scribbled - 1) +
                    ": the data term is made for " + std::to_string(marks.size()) + " labels" +
                    (options.sharesOfImage ? "" : ", with " + last + " as the background"));
  }
  warnOfUnmarkedLabels(marks, options, lines);
  warnOfStrayMarks(marks, options, lines);
  const std::size_t marked = std::accumulate(marks.begin(), marks.end(), std::size_t{0});
  if (marked > pixels / 2) {
    lines.push_back(std::to_string(marked) + " of " + std::to_string(pixels) +
                    " pixels are marked in " + options.scribbles +
                    "; the usual reason is a black background that became another grey value or "
                    "colour index than 0");
  }
  if (marks.size() == 2 && !options.sharesOfImage) {
    lines.emplace_back(
        "with a single foreground label, shares of the foreground say nothing; -shares image makes "
        "the prior work");
  }
  return lines;
}

}  // namespace namespace_ratseg
