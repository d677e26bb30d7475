#include "util/cmd.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <locale>
#include <sstream>

#include "util/small_file.h"

namespace namespace_ratseg {

namespace {

template <class T>
constexpr const char* kTypeName = "";
template <>
constexpr const char* kTypeName<std::string> = "string";
template <>
constexpr const char* kTypeName<double> = "double";
template <>
constexpr const char* kTypeName<float> = "float";
template <>
constexpr const char* kTypeName<int> = "int";
template <>
constexpr const char* kTypeName<std::size_t> = "size_t";
template <>
constexpr const char* kTypeName<bool> = "bool";

// Stores what text begins with in target. False when that is not a number of type T.
template <class T>
bool convert(const std::string& text, T& target) {
  std::istringstream stream(text);
  stream.exceptions(std::ios::badbit);  // Lack of memory is not a bad value.
  stream.imbue(std::locale::classic());
  stream >> target;
  return !stream.fail();
}

bool convert(const std::string& text, std::string& target) {
  target = text;
  return true;
}

bool startsComment(const std::string& word) {
  return word.starts_with('#') || word.starts_with('%') || word.starts_with("//");
}

std::vector<std::string> splitLine(const std::string& line) {
  std::istringstream stream(line);
  stream.exceptions(std::ios::badbit);
  std::vector<std::string> words;
  for (std::string word; stream >> word && !startsComment(word);) words.push_back(word);
  return words;
}

bool readInFolders(const std::string& filename, const std::string* dirs, int numDirs,
                   std::string& text) {
  for (int i = 0; dirs != nullptr && i < numDirs; ++i) {
    const std::string path = dirs[i] + (dirs[i].ends_with('/') ? "" : "/") + filename;
    if (readSmallFile(path, Cmd::kMaxFileBytes, text)) return true;
  }
  return readSmallFile(filename, Cmd::kMaxFileBytes, text);
}

}  // namespace

Cmd::Cmd(int argc, const char* const* argv, const std::string& filename, const std::string* dirs,
         int numDirs) {
  parse(argc, argv, filename, dirs, numDirs);
}

bool Cmd::parse(int argc, const char* const* argv, const std::string& filename,
                const std::string* dirs, int numDirs) {
  clear();
  const bool ok = filename.empty() || parseFile(filename, dirs, numDirs);
  if (argv != nullptr && argc >= 1) parseCmdLine(argc, argv);
  return ok;
}

bool Cmd::parseFile(const std::string& filename, const std::string* dirs, int numDirs) {
  std::string text;
  if (!readInFolders(filename, dirs, numDirs, text)) return false;
  std::istringstream file(text);
  file.exceptions(std::ios::badbit);
  for (std::string line; std::getline(file, line);) {
    const std::vector<std::string> words = splitLine(line);
    if (words.empty()) continue;
    const std::string& first = words.front();
    values[first.starts_with('-') ? first.substr(1) : first].assign(words.begin() + 1, words.end());
  }
  return true;
}

void Cmd::parseCmdLine(int argc, const char* const* argv) {
  std::vector<std::string>* current = nullptr;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (isOption(word)) {
      current = &values[word.substr(1)];
      current->clear();
    } else if (current != nullptr) {
      current->push_back(word);
    }
  }
}

bool Cmd::isOption(const std::string& word) {
  return word.starts_with('-') && !(word.size() > 1 && word[1] >= '0' && word[1] <= '9');
}

void Cmd::clear() {
  values.clear();
  descriptions.clear();
}

bool Cmd::hasArg(const std::string& name) const { return values.contains(name); }

std::size_t Cmd::numOptions(const std::string& name) const {
  const auto found = values.find(name);
  return found == values.end() ? 0 : found->second.size();
}

void Cmd::setDesc(const std::string& name, const std::string& type, const std::string& desc) {
  descriptions.try_emplace(name, ArgDesc{type, desc});
}

// Value number i of an option, null when there is none.
const std::string* Cmd::find(const std::string& name, std::size_t i) const {
  return i >= 1 && i <= numOptions(name) ? &values.at(name)[i - 1] : nullptr;
}

template <class T>
T Cmd::getNumber(const std::string& name, std::size_t i) {
  setDesc(name, kTypeName<T>, "");
  const std::string* text = find(name, i);
  T number = 0;
  return text != nullptr && convert(*text, number) ? number : 0;
}

std::string Cmd::getString(const std::string& name, std::size_t i) {
  setDesc(name, kTypeName<std::string>, "");
  const std::string* text = find(name, i);
  return text != nullptr ? *text : "";
}

double Cmd::getDouble(const std::string& name, std::size_t i) { return getNumber<double>(name, i); }
float Cmd::getFloat(const std::string& name, std::size_t i) { return getNumber<float>(name, i); }
int Cmd::getInt(const std::string& name, std::size_t i) { return getNumber<int>(name, i); }
std::size_t Cmd::getSize(const std::string& name, std::size_t i) {
  return getNumber<std::size_t>(name, i);
}

bool Cmd::getBool(const std::string& name) {
  bool value = hasArg(name);
  get(name, value);
  return value;
}

template <class T>
void Cmd::get(const std::string& name, T& target) {
  setDesc(name, kTypeName<T>, "");
  if (const std::string* text = find(name, 1)) convert(*text, target);
}

template void Cmd::get(const std::string&, std::string&);
template void Cmd::get(const std::string&, int&);
template void Cmd::get(const std::string&, float&);
template void Cmd::get(const std::string&, double&);
template void Cmd::get(const std::string&, std::size_t&);
template void Cmd::get(const std::string&, bool&);

void Cmd::printAll() const {
  for (const auto& [name, list] : values) {
    std::cout << name << (list.empty() ? " (no args)" : ": ");
    for (std::size_t i = 0; i < list.size(); ++i) std::cout << (i > 0 ? ", " : "") << list[i];
    std::cout << "\n";
  }
  std::cout << std::flush;
}

void Cmd::printUsageAndExit() const {
  std::size_t nameWidth = 0;
  std::size_t typeWidth = 0;
  for (const auto& [name, desc] : descriptions) {
    nameWidth = std::max(nameWidth, name.size());
    typeWidth = std::max(typeWidth, desc.type.size());
  }
  const auto padded = [](std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
  };
  for (const auto& [name, desc] : descriptions) {
    std::cout << padded(name, nameWidth + 1);
    if (!desc.type.empty()) std::cout << "(" << padded(desc.type, typeWidth) << ")";
    if (!desc.desc.empty()) std::cout << ": " << desc.desc;
    std::cout << "\n";
  }
  std::cout << std::flush;
  std::exit(0);
}

void Cmd::saveToFile(const std::string& filename) const {
  std::ofstream file(filename);
  if (!file.is_open()) {
    std::cout << "ERROR writing file " << filename << std::endl;
    return;
  }
  std::cout << "writing config to file " << filename << " ..." << std::endl;
  for (const auto& [name, list] : values) {
    if (!name.starts_with('%')) file << name;
    for (const std::string& value : list) file << " " << value;
    file << "\n";
  }
}

template <>
bool GetParam::get<bool>(const std::string& name, bool& target, int argc, const char* const* argv) {
  const std::string wanted = "-" + name;
  for (int i = argc - 1; i >= 1; --i) {
    if (argv[i] != wanted) continue;
    const std::string next = i + 1 < argc ? argv[i + 1] : "-";
    if (next.starts_with('-')) {
      target = true;
    } else {
      convert(next, target);
    }
    return true;
  }
  return false;
}

}  // namespace namespace_ratseg
