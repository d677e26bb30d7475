#ifndef RATSEG_PROJECT_LABEL_LIST_H
#define RATSEG_PROJECT_LABEL_LIST_H

#include <string>
#include <vector>

#include "project/project.h"

namespace namespace_ratseg {

// Labels from a line of text, as "austenite 58, martensite 9, matrix 32, rest": between commas the
// name of a label (which may have blanks), its share, and how far off that may be, as one of the
// words of spreadOfWord() or as "+-2" or "±2" in the unit of the shares. A colour "#rrggbb" may
// stand behind the name. Where some labels have a share, the one that has none takes the rest;
// where none has one, nothing is known of shares.
//
// Shares are per cent where one of them has a "%" or where they sum to more than 1.5, otherwise
// parts. Throws std::runtime_error, with words that tell what was expected and what was found, for
// an item without a name, names that come twice, numbers that are no shares, and two labels without
// a share beside others with one. Does not look at the sum: knownShares() does.
std::vector<ProjectLabel> parseLabelList(const std::string& text);

}  // namespace namespace_ratseg

#endif
