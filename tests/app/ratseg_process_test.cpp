// How the program's process ends, and what it leaves behind.

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ratseg_program.h"

namespace namespace_ratseg {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// The program at work, its standard output in a pipe, which nobody else reads or nobody at all, and
// standard error in a file.
class Running {
 public:
  Running(const Program& program, std::vector<std::string> words, bool isRead = true) {
    std::array<int, 2> ends;
    if (pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
    words.insert(words.begin(), program.path);
    const std::vector<char*> argv = program::pointers(words);
    std::vector<std::string> variables = program::environmentWith(program.environment);
    const std::vector<char*> envp = program::pointers(variables);
    out_ = ends[0];
    if (!isRead) hangUp();
    child_ = fork();
    if (child_ == 0) {
      hangUp();
      // What a shell in the background ignores its children ignore as well.
      for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP}) std::signal(signal, SIG_DFL);
      const int null = open("/dev/null", O_RDWR);
      const bool ready = dup2(null, 0) >= 0 && dup2(ends[1], 1) >= 0 &&
                         dup2(fileno(err_.get()), 2) >= 0 && chdir(program.folder.c_str()) == 0;
      if (ready) execve(program.path.c_str(), argv.data(), envp.data());
      _exit(127);
    }
    close(ends[1]);
  }
  ~Running() { hangUp(); }

  // Reads until the text has come, or to the end.
  std::string readUpTo(const std::string& text) {
    char c;
    while (!read_.ends_with(text) && read(out_, &c, 1) == 1) read_ += c;
    return read_;
  }
  void hangUp() {
    if (out_ >= 0) close(out_);
    out_ = -1;
  }
  void send(int signal) const { kill(child_, signal); }
  // As waitpid has it.
  int wait() const {
    int status = 0;
    waitpid(child_, &status, 0);
    return status;
  }
  std::string err() const { return program::contents(err_.get()); }

 private:
  const program::File err_ = program::temporaryFile();
  pid_t child_ = -1;
  int out_ = -1;
  std::string read_;
};

class RatsegProcess : public RatsegProgram {
 protected:
  // With more iterations than anybody waits for.
  Running start(const Changes& changes = {{"-iterations", "1000000000000"}}) const {
    return Running(program_, commandLine(changes));
  }
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      all.push_back(entry.path().filename().string());
    }
    std::sort(all.begin(), all.end());
    return all;
  }
};

TEST_F(RatsegProcess, SavesItsResultsThoughNobodyReadsItsOutput) {
  const Running running(program_, commandLine(), false);
  EXPECT_EQ(running.wait(), 0);
  for (const char* name : {"out_result_labeling.gz", "out_result_labeling.png",
                           "out_result_labeling_overlaid.png", "out_regularizer_weight.png"}) {
    EXPECT_TRUE(std::filesystem::exists(dir_.file(name))) << name;
  }
}

TEST_F(RatsegProcess, LeavesNothingButALineWhenItIsInterrupted) {
  const std::vector<std::string> before = names();
  const std::pair<int, std::string> ends[] = {{SIGINT, "2 (SIGINT, Ctrl-C)"},
                                              {SIGTERM, "15 (SIGTERM)"},
                                              {SIGHUP, "1 (SIGHUP, the terminal is gone)"}};
  for (const auto& [signal, name] : ends) {
    Running running = start();
    EXPECT_THAT(running.readUpTo("Computing\n"), EndsWith("Computing\n"));
    running.send(signal);
    const int status = running.wait();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
    EXPECT_EQ(names(), before);
    EXPECT_EQ(running.err(), "ERROR: ended by signal " + name + "; no result file was saved\n");
  }
}

TEST_F(RatsegProcess, SaysWhichFaultEndsIt) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer says it";
#endif
  for (const auto& [signal, text] :
       {std::pair(SIGSEGV, "signal 11"), std::pair(SIGABRT, "signal 6")}) {
    Running running = start();
    running.readUpTo("Computing\n");
    running.send(signal);
    EXPECT_THAT(running.readUpTo("no such text"),
                HasSubstr(std::string("\nERROR: ended by ") + text));
    const int status = running.wait();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
  }
}

TEST_F(RatsegProcess, RemovesWhatKilledRunsLeftOfItsResults) {
  saveText("out_result_labeling.gz.4711.part", "half");
  saveText("other_result_labeling.gz.4711.part", "half");
  const ProgramResult result = run();
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err,
              HasSubstr("ratseg: removed out_result_labeling.gz.4711.part, which a run that was "
                        "killed left behind\n"));
  EXPECT_FALSE(std::filesystem::exists(dir_.file("out_result_labeling.gz.4711.part")));
  EXPECT_TRUE(std::filesystem::exists(dir_.file("other_result_labeling.gz.4711.part")));
  EXPECT_THAT(run().err, Not(HasSubstr("killed")));
}

}  // namespace
}  // namespace namespace_ratseg
