// -progress: how far the run is, on a terminal and elsewhere.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/wait.h>

#include <array>
#include <csignal>

#include "app/ratseg_program.h"

namespace namespace_ratseg {
namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

// The program with standard error on a terminal of so many columns, and standard output in a file
// or there as well.
class OnTerminal {
 public:
  OnTerminal(const Program& program, std::vector<std::string> words, unsigned short columns = 200,
             bool withOutput = false) {
    const winsize size = {24, columns, 0, 0};
    int terminal = -1;
    if (openpty(&screen_, &terminal, nullptr, nullptr, &size) != 0) {
      throw std::runtime_error("no terminal");
    }
    words.insert(words.begin(), program.path);
    const std::vector<char*> argv = program::pointers(words);
    std::vector<std::string> variables = program::environmentWith(program.environment);
    const std::vector<char*> envp = program::pointers(variables);
    child_ = fork();
    if (child_ == 0) {
      std::signal(SIGINT, SIG_DFL);
      const bool ready = dup2(open("/dev/null", O_RDONLY), 0) >= 0 &&
                         dup2(withOutput ? terminal : fileno(out_.get()), 1) >= 0 &&
                         dup2(terminal, 2) >= 0 && chdir(program.folder.c_str()) == 0;
      close(terminal);
      close(screen_);
      if (ready) execve(program.path.c_str(), argv.data(), envp.data());
      _exit(127);
    }
    close(terminal);
  }
  ~OnTerminal() { close(screen_); }
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;

  // What the terminal got up to this text, or to the end.
  const std::string& readUpTo(const std::string& text) {
    char c;
    while (!seen_.ends_with(text) && read(screen_, &c, 1) == 1) seen_ += c;
    return seen_;
  }
  const std::string& readAll() { return readUpTo("no such text"); }
  void send(int signal) const { kill(child_, signal); }
  int wait() const {
    int status = 0;
    waitpid(child_, &status, 0);
    return status;
  }
  std::string out() const { return program::contents(out_.get()); }

 private:
  const program::File out_ = program::temporaryFile();
  pid_t child_ = -1;
  int screen_ = -1;
  std::string seen_;
};

class RatsegProgress : public RatsegProgram {
 protected:
  static constexpr const char* kFiles[] = {"out_result_labeling.gz", "out_result_labeling.png",
                                           "out_result_labeling_overlaid.png",
                                           "out_regularizer_weight.png"};
  std::vector<std::string> results() const {
    std::vector<std::string> all;
    for (const char* name : kFiles) {
      std::ifstream in(dir_.file(name), std::ios::binary);
      all.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return all;
  }
};

TEST_F(RatsegProgress, IsLinesOfALogWhereStandardErrorIsNoTerminal) {
  const ProgramResult plain = run();
  const std::vector<std::string> before = results();
  const ProgramResult shown = run({{"-progress", "1"}});
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(withoutTime(shown.out), withoutTime(plain.out));
  EXPECT_EQ(results(), before);
  EXPECT_THAT(
      shown.err,
      ContainsRegex("(^|\n)ratseg: 20 of 20 iterations in [0-9a-z ]+, [0-9.]+ per second\n"));
  EXPECT_THAT(shown.err, EndsWith(plain.err));
}

TEST_F(RatsegProgress, ChangesNeitherTheStopNorTheResultsOfARunWithATolerance) {
  const Changes changes = {{"-iterations", "2000"}, {"-tolerance", "1e-3"}, {"-accelerate", "1"}};
  const ProgramResult plain = run(changes);
  const std::vector<std::string> before = results();
  Changes shown = changes;
  shown["-progress"] = "1";
  EXPECT_THAT(run(shown).err, EndsWith(plain.err));
  EXPECT_EQ(results(), before);
}

TEST_F(RatsegProgress, IsNotShownUnaskedWhereStandardErrorIsNoTerminalNorWith0) {
  EXPECT_EQ(withoutShares(run().err), "");
  EXPECT_EQ(withoutShares(run({{"-progress", "0"}}).err), "");
}

TEST_F(RatsegProgress, TakesNothingBut0And1) {
  for (const char* value : {"2", "yes", ""}) {
    const ProgramResult result = run({{"-progress", value}});
    EXPECT_THAT(result.out, HasSubstr("ERROR: -progress must be 0 or 1, but is \"" +
                                      std::string(value) + "\"\n"));
    EXPECT_EQ(result.status, 1);
  }
}

TEST_F(RatsegProgress, IsALineThatIsErasedOnATerminal) {
  const std::string plain = withoutTime(run().out);
  OnTerminal terminal(program_, commandLine({{"-progress", "1"}}));
  // The terminal makes "\r\n" of "\n".
  EXPECT_THAT(terminal.readAll(), MatchesRegex("\rratseg: 0 of 20 iterations(\rratseg: [^\r]*)*\r"
                                               " +\rShares of the labeling:\r\n(.|\n|\r)*"));
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_EQ(withoutTime(terminal.out()), plain);
}

TEST_F(RatsegProgress, BeginsBehindTheLineThatTheProgramComputes) {
  OnTerminal terminal(program_, commandLine({{"-progress", "1"}}), 200, true);
  EXPECT_THAT(terminal.readAll(), HasSubstr("\nComputing\r\n\rratseg: 0 of 20 iterations"));
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(RatsegProgress, IsCutToTheWidthOfTheTerminal) {
  OnTerminal terminal(program_, commandLine({{"-progress", "1"}}), 15);
  EXPECT_THAT(terminal.readAll(), StartsWith("\rratseg: 0 of 2\r"));
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(RatsegProgress, IsNotShownOnATerminalWith0) {
  OnTerminal terminal(program_, commandLine({{"-progress", "0"}}));
  EXPECT_THAT(terminal.readAll(), StartsWith("Shares of the labeling:\r\n"));
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(RatsegProgress, IsShownUnaskedOfALongRunAndFinishedWhenItIsInterrupted) {
  OnTerminal terminal(program_, commandLine({{"-iterations", "1000000000000"}}));
  EXPECT_THAT(terminal.readUpTo(" left"),
              MatchesRegex("\rratseg: [0-9]+ of 1000000000000 iterations, [0-9.]+ per second, "
                           "[0-9]+ days left"));
  terminal.send(SIGINT);
  EXPECT_THAT(
      terminal.readAll(),
      EndsWith(" left\r\nERROR: ended by signal 2 (SIGINT, Ctrl-C); no result file was saved\r\n"));
  const int status = terminal.wait();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
}

}  // namespace
}  // namespace namespace_ratseg
