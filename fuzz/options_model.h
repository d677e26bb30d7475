#ifndef RATSEG_FUZZ_OPTIONS_MODEL_H
#define RATSEG_FUZZ_OPTIONS_MODEL_H

// What cmd.h says of command lines and option files, once more and plainly.

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "target.h"
#include "util/cmd.h"

namespace fuzz {

using Options = std::map<std::string, std::vector<std::string>>;

inline bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

inline bool beginsComment(std::string_view word) {
  return !word.empty() && (word[0] == '#' || word[0] == '%' || word.substr(0, 2) == "//");
}

inline Options modelOfCommandLine(const std::vector<std::string>& words) {
  Options options;
  std::string name;
  bool any = false;
  for (const std::string& word : words) {
    const bool digit = word.size() > 1 && word[1] >= '0' && word[1] <= '9';
    if (!word.empty() && word[0] == '-' && !digit) {
      name = word.substr(1);
      options[name] = {};
      any = true;
    } else if (any) {
      options[name].push_back(word);
    }
  }
  return options;
}

inline Options modelOfFile(std::string_view text) {
  Options options;
  std::vector<std::string> words;
  std::string word;
  bool comment = false;
  const auto endWord = [&] {
    comment = comment || beginsComment(word);
    if (!word.empty() && !comment) words.push_back(word);
    word.clear();
  };
  const auto endLine = [&] {
    endWord();
    if (!words.empty()) {
      std::string name = words[0];
      if (name[0] == '-') name.erase(0, 1);
      options[name] = {words.begin() + 1, words.end()};
    }
    words.clear();
    comment = false;
  };
  for (char c : text) {
    if (c == '\n') {
      endLine();
    } else if (isBlank(c)) {
      endWord();
    } else {
      word += c;
    }
  }
  endLine();
  return options;
}

// Whether an option file can hold the word.
inline bool fitsIntoFile(const std::string& word) {
  for (char c : word) {
    if (isBlank(c)) return false;
  }
  return !word.empty() && !beginsComment(word);
}

// Whether an option file can hold all options, and so tells them when it is read.
inline bool fitIntoFile(const Options& options) {
  for (const auto& [name, values] : options) {
    if (!fitsIntoFile(name) || name[0] == '-') return false;
    for (const std::string& value : values) {
      if (!fitsIntoFile(value)) return false;
    }
  }
  return true;
}

// Saved options are the same when they are read back.
inline void expectRoundTrip(const namespace_ratseg::Cmd& cmd) {
  static const MemoryFile file;
  if (!fitIntoFile(cmd.values)) return;
  const Captured captured;
  cmd.saveToFile(file.path());
  namespace_ratseg::Cmd again;
  FUZZ_EXPECT(again.parseFile(file.path(), nullptr, 0), "a saved file opens");
  FUZZ_EXPECT(again.values == cmd.values, "saved options read back");
}

}  // namespace fuzz

#endif
