#ifndef RATSEG_TESTS_SUPPORT_PROGRAM_H
#define RATSEG_TESTS_SUPPORT_PROGRAM_H

// Runs a program as a user would, without a shell.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

struct ProgramResult {
  int status = -1;  // exit status; 128 + the signal's number for a program that a signal ended
  std::string out;  // standard output
  std::string err;  // standard error
};

struct Program {
  std::string path;
  std::map<std::string, std::string> environment;  // set beside the environment of this process
  std::string folder;                              // to run in; empty = the current one
  std::size_t addressSpace = 0;                    // bytes that it may map; 0 = no limit

  // Runs to the end, with an empty standard input. Word 0 is name, or path where name is empty.
  ProgramResult run(const std::vector<std::string>& arguments, const std::string& name = "") const;
};

namespace program {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

inline File temporaryFile() {
  File file(std::tmpfile(), &std::fclose);
  if (file == nullptr) throw std::runtime_error("cannot make a temporary file");
  return file;
}

inline std::string contents(std::FILE* file) {
  std::string text;
  char buffer[4096];
  std::rewind(file);
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;) text.append(buffer, n);
  return text;
}

// This process's environment with additions, as NAME=VALUE.
inline std::vector<std::string> environmentWith(const std::map<std::string, std::string>& added) {
  std::vector<std::string> result;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string entry = *variable;
    if (!added.contains(entry.substr(0, entry.find('=')))) result.push_back(entry);
  }
  for (const auto& [name, value] : added) result.push_back(name + "=" + value);
  return result;
}

// The strings as execve wants them; points into strings.
inline std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  for (std::string& text : strings) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

}  // namespace program

inline ProgramResult Program::run(const std::vector<std::string>& arguments,
                                  const std::string& name) const {
  std::vector<std::string> words = {name.empty() ? path : name};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables = program::environmentWith(environment);
  const std::vector<char*> argv = program::pointers(words);
  const std::vector<char*> envp = program::pointers(variables);
  const program::File out = program::temporaryFile();
  const program::File err = program::temporaryFile();

  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child == 0) {
    const rlimit limit = {addressSpace, addressSpace};
    const bool ready = dup2(open("/dev/null", O_RDONLY), 0) >= 0 &&
                       dup2(fileno(out.get()), 1) >= 0 && dup2(fileno(err.get()), 2) >= 0 &&
                       (folder.empty() || chdir(folder.c_str()) == 0) &&
                       (addressSpace == 0 || setrlimit(RLIMIT_AS, &limit) == 0);
    if (ready) execve(path.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child) throw std::runtime_error("cannot wait for the program");
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
          program::contents(out.get()), program::contents(err.get())};
}

#endif
