#include "app/option_file.h"

#include <filesystem>
#include <iostream>
#include <system_error>

#include "app/messages.h"
#include "util/cmd.h"
#include "util/same_file.h"
#include "util/small_file.h"

namespace namespace_ratseg {

namespace {

namespace fs = std::filesystem;

// File names are shown in full.
std::string shown(const std::string& file) { return inQuotes(file, file.size()); }

// True if there is something of that name; a link that leads nowhere does not count.
bool exists(const std::string& file) {
  std::error_code ignored;
  return fs::exists(file, ignored);
}

// One that a program called by its path would read.
void warnOfUnreadLocalFile(const std::string& local, const std::string& read) {
  std::error_code ignored;
  if (!exists(local) || fs::is_directory(local, ignored) || sameFile(local, read)) return;
  warnOfOption(shown(local) +
               " is not read: the program was found through PATH, and its option "
               "file is " +
               shown(read));
}

}  // namespace

std::string findOptionFile(const std::string& word0, bool tell) {
  if (word0.empty()) return "";
  const bool typed = word0.find('/') != std::string::npos;
  std::error_code ignored;
  const std::string program = typed ? word0 : fs::read_symlink("/proc/self/exe", ignored).string();
  const std::string file = program + ".cfg";
  if (tell && !typed) warnOfUnreadLocalFile("./" + word0 + ".cfg", file);
  if (program.empty() || !exists(file)) return "";

  std::string text;
  std::string fault;
  if (readSmallFile(file, Cmd::kMaxFileBytes, text, &fault)) {
    if (tell) std::cerr << "ratseg: options from " << shown(file) << std::endl;
    return file;
  }
  if (tell)
    warnOfOption("the option file " + shown(file) +
                 " is not read: expected a regular file of at most " +
                 std::to_string(Cmd::kMaxFileBytes) + " bytes, but it " + fault);
  return "";
}

}  // namespace namespace_ratseg
