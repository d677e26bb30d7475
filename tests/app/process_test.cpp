// What a signal leaves on standard error.

#include "app/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>

#include "app/messages.h"
#include "support/program.h"
#include "support/temp_dir.h"
#include "util/file_replacement.h"

namespace namespace_ratseg {
namespace {

// What a process says on standard error that does this and then gets the signal.
std::string lastWords(int signal, const std::function<void()>& work) {
  const program::File err = program::temporaryFile();
  const pid_t child = fork();
  if (child == 0) {
    for (const int one : {SIGINT, SIGTERM, SIGHUP}) std::signal(one, SIG_DFL);
    dup2(fileno(err.get()), STDERR_FILENO);
    alarm(60);  // A process that hangs ends all the same.
    prepareProcess(STDOUT_FILENO);
    work();
    std::raise(signal);
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
  return program::contents(err.get());
}

TEST(Process, SaysInOneLineWhichSignalEndsIt) {
  const auto nothing = [] {};
  EXPECT_EQ(lastWords(SIGINT, nothing),
            "ERROR: ended by signal 2 (SIGINT, Ctrl-C); no result file was saved\n");
  EXPECT_EQ(lastWords(SIGTERM, nothing),
            "ERROR: ended by signal 15 (SIGTERM); no result file was saved\n");
  EXPECT_EQ(lastWords(SIGHUP, nothing),
            "ERROR: ended by signal 1 (SIGHUP, the terminal is gone); no result file was saved\n");
}

TEST(Process, SaysWhereResultsMayHaveBeenSaved) {
  const TempDir dir;
  const FileReplacement::Write write = [](int descriptor) {
    return writeAll(descriptor, "new", 3);
  };
  const std::string made =
      lastWords(SIGINT, [&] { FileReplacement(dir.file("made")).make(write); });
  EXPECT_EQ(made, "ERROR: ended by signal 2 (SIGINT, Ctrl-C); no result file was saved\n");
  const std::string placed = lastWords(SIGINT, [&] {
    FileReplacement file(dir.file("placed"));
    file.make(write);
    file.finish();
  });
  EXPECT_EQ(placed,
            "ERROR: ended by signal 2 (SIGINT, Ctrl-C); result files may have been saved\n");
  const std::string device = lastWords(SIGINT, [&] {
    const std::string pipe = dir.file("pipe");
    mkfifo(pipe.c_str(), 0600);
    open(pipe.c_str(), O_RDWR);  // somebody who reads
    FileReplacement(pipe).make(write);
  });
  EXPECT_EQ(device,
            "ERROR: ended by signal 2 (SIGINT, Ctrl-C); result files may have been saved\n");
}

// As an allocation does that fails while a number is printed.
TEST(Process, SaysAnErrorThoughStandardOutputFailedBefore) {
  const program::File out = program::temporaryFile();
  std::fflush(stdout);  // or the child has a copy of what this process has not written yet
  const pid_t child = fork();
  if (child == 0) {
    dup2(fileno(out.get()), STDOUT_FILENO);
    std::cout.setstate(std::ios::badbit);
    std::atexit([] { _exit(1); });  // without the tests' own end
    fail("ERROR: of a test");
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
  EXPECT_EQ(program::contents(out.get()), "ERROR: of a test\n");
}

// A pipe that is full and that nobody reads.
TEST(Process, EndsBySignalAlsoWhereNobodyTakesItsLastWords) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_EQ(lastWords(SIGINT,
                      [&] {
                        dup2(ends[1], STDERR_FILENO);
                        fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
                        const std::string block(4096, 'x');
                        while (write(STDERR_FILENO, block.data(), block.size()) > 0) continue;
                        while (write(STDERR_FILENO, "x", 1) > 0) continue;
                        fcntl(STDERR_FILENO, F_SETFL, 0);
                      }),
            "");
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace namespace_ratseg
