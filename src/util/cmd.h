#ifndef RATSEG_UTIL_CMD_H
#define RATSEG_UTIL_CMD_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace namespace_ratseg {

// Named options, each with a list of values, from an option file and from the command line.
//
// On the command line a word that begins with '-' names an option, except where a digit follows the
// '-' (-5, -0.5); the words after it are its values. An option without values is a flag. In an
// option file each line is one option: its name, with or without '-', and its values, separated by
// blanks; a word that begins with '#', '%' or "//" and what follows it on the line are a comment.
// Giving an option again replaces its values, so the command line has the last word.
//
// Names are written without their leading '-' here. Values are numbered from 1. Numbers are read by
// formatted stream extraction in the "C" locale, which takes the longest number that a value begins
// with ("5abc" is 5); nothing is printed about values that are not numbers.
class Cmd {
 public:
  // Description of an option for the usage listing.
  struct ArgDesc {
    std::string type;  // "string", "double", "float", "int", "size_t", "bool" or empty
    std::string desc;  // free text, may be empty
  };

  // Of an option file.
  static constexpr std::size_t kMaxFileBytes = std::size_t{1} << 20;

  Cmd() = default;
  // The same as parse().
  Cmd(int argc, const char* const* argv, const std::string& filename, const std::string* dirs,
      int numDirs);
  virtual ~Cmd() = default;

  // Forgets everything, then reads the option file (unless filename is empty) and the command line
  // (unless argv is null or argc below 1; word 0 is the program). Returns what parseFile returned,
  // true without a file name.
  bool parse(int argc, const char* const* argv, const std::string& filename,
             const std::string* dirs, int numDirs);

  // Adds the options of a file: of the first of the numDirs folders that has it, otherwise of
  // filename as it stands. dirs may be null. False when there is no regular file of at most
  // kMaxFileBytes that can be read; others, as pipes, are not waited for.
  bool parseFile(const std::string& filename, const std::string* dirs, int numDirs);

  // True if a word of a command line names an option.
  static bool isOption(const std::string& word);

  // Adds the options of words 1 to argc - 1. Values before the first option are ignored.
  void parseCmdLine(int argc, const char* const* argv);

  // Forgets all options and descriptions.
  void clear();

  // True if the option was given, with or without values.
  bool hasArg(const std::string& name) const;

  // Number of values; 0 for an option that was not given.
  std::size_t numOptions(const std::string& name) const;

  // Describes an option for printUsageAndExit. The first description of a name stays. Every read
  // below is such a description too, of its type and with an empty text.
  void setDesc(const std::string& name, const std::string& type, const std::string& desc);

  // Value number i; an empty string, or 0, when there is none. The numbers are 0 also for a value
  // that is not a number or out of the type's range.
  std::string getString(const std::string& name, std::size_t i = 1);
  double getDouble(const std::string& name, std::size_t i = 1);
  float getFloat(const std::string& name, std::size_t i = 1);
  int getInt(const std::string& name, std::size_t i = 1);
  std::size_t getSize(const std::string& name, std::size_t i = 1);

  // False when the option was not given, true when it was given as a flag, otherwise whether its
  // first value is "1" (other numbers than 0 are true as well, other words are false).
  bool getBool(const std::string& name);

  // Stores the first value in target; without one target keeps what it holds, the default. T is
  // string, int, float, double, size_t or bool. A value that is not a number stores 0 (false), an
  // empty one nothing; one out of the type's range stores the nearest number of the type (true for
  // bool).
  template <class T>
  void get(const std::string& name, T& target);

  // Lists the options on standard output, in the order of their names.
  void printAll() const;

  // Lists the descriptions on standard output, in the order of their names, and ends the process
  // with status 0.
  [[noreturn]] void printUsageAndExit() const;

  // Writes the options as an option file and says so on standard output. Of an option whose name
  // begins with '%' only the values are written.
  void saveToFile(const std::string& filename) const;

  std::map<std::string, std::vector<std::string>> values;
  std::map<std::string, ArgDesc> descriptions;

 private:
  const std::string* find(const std::string& name, std::size_t i) const;
  template <class T>
  T getNumber(const std::string& name, std::size_t i);
};

// Reads of the command line without a Cmd.
class GetParam {
 public:
  // Option -name, its last occurrence counting: true is stored in target when it is the last word
  // or when the word after it begins with '-', otherwise the word after it, read as by Cmd::get.
  // Returns whether the option was found; target keeps what it holds when not. T is bool.
  template <class T>
  static bool get(const std::string& name, T& target, int argc, const char* const* argv);
};

}  // namespace namespace_ratseg

#endif
