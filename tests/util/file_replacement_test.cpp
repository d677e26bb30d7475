#include "util/file_replacement.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/full_device.h"
#include "support/system_calls.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FileReplacementTest : public testing::Test {
 protected:
  ~FileReplacementTest() override { system_calls::hooks = {}; }

  static void write(const std::string& file, const std::string& text) {
    std::ofstream(file) << text;
  }
  static std::string read(const std::string& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
  }
  static FileReplacement::Write content(const std::string& text) {
    return [text](int descriptor) { return writeAll(descriptor, text.data(), text.size()); };
  }
  // errno of the replacement, 0 where it is in its place.
  static int replace(const std::string& file, const std::string& text) {
    FileReplacement replacement(file);
    return replacement.make(content(text)) && replacement.finish() ? 0 : errno;
  }
  // The names in the folder, but for the file itself.
  std::vector<std::string> others() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      if (entry.path() != file_) names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  static bool isPart(const std::string& path) { return path.ends_with(".part"); }

  TempDir dir_;
  std::string file_ = dir_.file("result");
};

TEST_F(FileReplacementTest, TheOldFileStaysUntilTheNewOneIsInItsPlace) {
  write(file_, "old");
  {
    FileReplacement replacement(file_);
    EXPECT_TRUE(replacement.make(content("new")));
    EXPECT_EQ(read(file_), "old");
    EXPECT_EQ(others().size(), 1u);
    EXPECT_TRUE(replacement.finish());
    EXPECT_EQ(read(file_), "new");
  }
  EXPECT_EQ(read(file_), "new");
  EXPECT_THAT(others(), IsEmpty());
}

TEST_F(FileReplacementTest, OneThatIsNotFinishedLeavesNothingBehind) {
  { FileReplacement replacement(file_); }
  {
    FileReplacement replacement(file_);
    EXPECT_TRUE(replacement.make(content("new")));
  }
  EXPECT_FALSE(std::filesystem::exists(file_));
  write(file_, "old");
  {
    FileReplacement replacement(file_);
    EXPECT_FALSE(replacement.make([](int descriptor) {
      writeAll(descriptor, "ne", 2);
      errno = EIO;
      return false;
    }));
    EXPECT_EQ(errno, EIO);
    EXPECT_FALSE(replacement.finish());
    EXPECT_EQ(errno, EIO);
  }
  EXPECT_EQ(read(file_), "old");
  EXPECT_THAT(others(), IsEmpty());
}

TEST_F(FileReplacementTest, HasThePermissionsOfTheOldFileOrThoseOfAnyNewOne) {
  const auto permissions = [this] {
    struct stat now = {};
    EXPECT_EQ(stat(file_.c_str(), &now), 0);
    return now.st_mode & 07777;
  };
  const mode_t before = umask(0026);
  ASSERT_EQ(replace(file_, "new"), 0);
  umask(before);
  EXPECT_EQ(permissions(), 0640u);
  chmod(file_.c_str(), 0604);
  ASSERT_EQ(replace(file_, "new"), 0);
  EXPECT_EQ(permissions(), 0604u);
}

// In a process of its own, as another user where this one is root, who may write every file.
TEST_F(FileReplacementTest, AReadOnlyFileIsNotReplaced) {
  constexpr int kNotPossible = 77;
  write(file_, "old");
  chmod(file_.c_str(), 0444);
  chmod(dir_.path().c_str(), 0777);
  const pid_t child = fork();
  if (child == 0) {
    constexpr uid_t kNobody = 65534;
    const bool isOther = geteuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 &&
                                            setuid(kNobody) == 0);
    if (!isOther) _exit(kNotPossible);
    _exit(replace(file_, "new") == EACCES ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNotPossible) GTEST_SKIP() << "root stays root";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(read(file_), "old");
  EXPECT_THAT(others(), IsEmpty());
}

TEST_F(FileReplacementTest, WhatALinkNamesIsReplacedAndTheLinkStays) {
  std::filesystem::create_directory(dir_.file("folder"));
  const std::string target = dir_.file("folder/target");
  ASSERT_EQ(symlink("folder/target", file_.c_str()), 0);
  EXPECT_EQ(replace(file_, "first"), 0);  // a link to nothing
  EXPECT_EQ(read(target), "first");
  FileReplacement replacement(file_);
  EXPECT_TRUE(replacement.make(content("second")));
  EXPECT_EQ(read(target), "first");
  EXPECT_TRUE(replacement.finish());
  EXPECT_EQ(read(target), "second");
  EXPECT_TRUE(std::filesystem::is_symlink(file_));
}

// (A fault here must not replace the machine's own devices: the pipe and the device are of this
// test.)
TEST_F(FileReplacementTest, PipesAndDevicesAreWrittenThemselves) {
  ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
  std::string got;
  std::thread reader([&] { got = read(file_); });
  EXPECT_EQ(replace(file_, "new"), 0);
  reader.join();
  EXPECT_EQ(got, "new");
  EXPECT_TRUE(std::filesystem::is_fifo(file_));
  const std::string full = fullDevice(dir_);
  if (full.empty()) return;
  EXPECT_EQ(replace(full, "new"), ENOSPC);
  EXPECT_TRUE(std::filesystem::is_character_file(full));
}

TEST_F(FileReplacementTest, SaysWhyThereCanBeNoSuchFile) {
  EXPECT_EQ(replace(dir_.file("missing/result"), "new"), ENOENT);
  EXPECT_EQ(replace(dir_.path().string(), "new"), EISDIR);
  write(file_, "old");
  EXPECT_EQ(replace(file_ + "/result", "new"), ENOTDIR);
  EXPECT_EQ(read(file_), "old");
}

// A folder that becomes full between its files, or whose quota or inodes are used up.
TEST_F(FileReplacementTest, WithoutRoomForANewFileTheOldOneIsOverwrittenOnlyIfAllOfItFits) {
  for (const int full : {ENOSPC, EDQUOT}) {
    write(file_, "old");
    system_calls::hooks.open = [full](const std::string& path, int) {
      return isPart(path) ? full : 0;
    };
    system_calls::hooks.fallocate = [](int, off_t) { return ENOSPC; };
    EXPECT_EQ(replace(file_, "new and longer"), ENOSPC);
    EXPECT_EQ(read(file_), "old");
    system_calls::hooks.fallocate = nullptr;
    EXPECT_EQ(replace(file_, "new and longer"), 0);
    EXPECT_EQ(read(file_), "new and longer");
    EXPECT_EQ(replace(file_, "short"), 0);
    EXPECT_EQ(read(file_), "short");
    EXPECT_THAT(others(), IsEmpty());
  }
}

TEST_F(FileReplacementTest, WithoutRoomForANewFileNoneIsMade) {
  system_calls::hooks.open = [](const std::string& path, int) { return isPart(path) ? ENOSPC : 0; };
  EXPECT_EQ(replace(file_, "new"), ENOSPC);
  EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(FileReplacementTest, ADiskThatIsFullForBothFilesTakesTheNewOneAlone) {
  write(file_, "old");
  int writes = 0;
  system_calls::hooks.write = [&writes](int, std::size_t) { return ++writes == 1 ? ENOSPC : 0; };
  EXPECT_EQ(replace(file_, "new"), 0);
  EXPECT_EQ(read(file_), "new");
  EXPECT_THAT(others(), IsEmpty());
}

TEST_F(FileReplacementTest, AFolderThatTakesNoNewFilesHasItsOldOneOverwritten) {
  for (const int refusal : {EACCES, EPERM, EROFS, ENAMETOOLONG}) {
    write(file_, "old");
    system_calls::hooks.open = [refusal](const std::string& path, int) {
      return isPart(path) ? refusal : 0;
    };
    FileReplacement replacement(file_);
    EXPECT_TRUE(replacement.make(content("new")));
    EXPECT_EQ(read(file_), "old");
    EXPECT_TRUE(replacement.finish());
    EXPECT_EQ(read(file_), "new");
  }
  system_calls::hooks.open = [](const std::string& path, int) { return isPart(path) ? EIO : 0; };
  EXPECT_EQ(replace(file_, "newer"), EIO);
  EXPECT_EQ(read(file_), "new");
}

TEST_F(FileReplacementTest, TheLongestNamesHaveNoRoomForAnEnding) {
  file_ = dir_.file(std::string(255, 'x'));
  EXPECT_EQ(replace(file_, "first"), 0);
  EXPECT_EQ(replace(file_, "second"), 0);
  EXPECT_EQ(read(file_), "second");
}

TEST_F(FileReplacementTest, WhatCannotBeRenamedIsCopiedIntoTheOldFile) {
  for (const int refusal : {EBUSY, EPERM, EACCES, EXDEV, EIO}) {
    write(file_, "an old file");
    system_calls::hooks.rename = [refusal](const std::string&, const std::string&) {
      return refusal;
    };
    EXPECT_EQ(replace(file_, "new"), 0);
    EXPECT_EQ(read(file_), "new");
    EXPECT_THAT(others(), IsEmpty());
  }
}

TEST_F(FileReplacementTest, IsOnTheDiskBeforeItTakesItsPlace) {
  std::vector<std::string> calls;
  system_calls::hooks.fsync = [&](int) {
    calls.push_back("fsync");
    return 0;
  };
  system_calls::hooks.rename = [&](const std::string&, const std::string&) {
    calls.push_back("rename");
    return 0;
  };
  EXPECT_EQ(replace(file_, "new"), 0);
  EXPECT_THAT(calls, ElementsAre("fsync", "rename", "fsync"));
  // Lost by the disk.
  system_calls::hooks.fsync = [](int) { return EIO; };
  EXPECT_EQ(replace(file_, "newer"), EIO);
  EXPECT_EQ(read(file_), "new");
}

TEST_F(FileReplacementTest, AnotherFileUnderThePartsNameIsNeitherTakenNorRemoved) {
  write(file_, "old");
  std::string part;
  {
    FileReplacement replacement(file_);
    ASSERT_TRUE(replacement.make(content("new")));
    part = dir_.file(others().at(0));
    std::filesystem::remove(part);
    write(part, "strange");
    EXPECT_TRUE(replacement.finish());
  }
  EXPECT_EQ(read(file_), "new");
  EXPECT_EQ(read(part), "strange");
}

TEST_F(FileReplacementTest, ANameThatIsTakenIsNotUsed) {
  const std::string taken = file_ + "." + std::to_string(getpid()) + ".part";
  write(taken, "strange");
  write(file_, "old");
  FileReplacement replacement(file_);
  EXPECT_TRUE(replacement.make(content("new")));
  EXPECT_EQ(read(file_), "old");
  EXPECT_TRUE(replacement.finish());
  EXPECT_EQ(read(file_), "new");
  EXPECT_EQ(read(taken), "strange");
  EXPECT_THAT(others().size(), 1u);
}

TEST_F(FileReplacementTest, OnlyPartsOfTheDeadAreRemoved) {
  for (const char* name : {"result.17.part", "result.17-2.part", "result.x.part", "result.17.par",
                           "result.part", "results.17.part", "result.-1.part", "result.1-.part"}) {
    write(dir_.file(name), "left");
  }
  FileReplacement alive(file_);
  ASSERT_TRUE(alive.make(content("new")));
  EXPECT_EQ(others().size(), 9u);
  auto removed = removeDeadPartFiles(file_);
  std::sort(removed.begin(), removed.end());
  EXPECT_THAT(removed, ElementsAre(file_ + ".17-2.part", file_ + ".17.part"));
  EXPECT_EQ(others().size(), 7u);
  EXPECT_TRUE(alive.finish());
  EXPECT_THAT(removeDeadPartFiles("missing-folder/result"), IsEmpty());
}

TEST_F(FileReplacementTest, SignalsRemoveTheParts) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    write(file_, "old");
    const pid_t child = fork();
    if (child == 0) {
      removePartFilesOnSignals();
      FileReplacement replacement(file_);
      replacement.make([signal](int descriptor) {
        writeAll(descriptor, "ne", 2);
        std::raise(signal);
        return true;
      });
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal);
    EXPECT_EQ(read(file_), "old");
    EXPECT_THAT(others(), IsEmpty());
  }
}

// The thread that creates a file holds signals back, so another one gets them. It must not end the
// process before the new file's name is known, however long that takes.
TEST_F(FileReplacementTest, SignalsToOtherThreadsWaitForTheNameOfANewPart) {
  write(file_, "old");
  const pid_t child = fork();
  if (child == 0) {
    removePartFilesOnSignals();
    system_calls::hooks.flock = [](int, int) {
      std::thread other([] {
        sigset_t none;
        sigemptyset(&none);
        pthread_sigmask(SIG_SETMASK, &none, nullptr);
        std::raise(SIGTERM);
      });
      other.join();
      return 0;
    };
    FileReplacement replacement(file_);
    replacement.make(content("new"));
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
  EXPECT_EQ(read(file_), "old");
  EXPECT_THAT(others(), IsEmpty());
}

// What the handler says is written to this file.
int saysTo = -1;
void say(int signal) {
  const std::string line = "ended by " + std::to_string(signal) + "\n";
  writeAll(saysTo, line.data(), line.size());
}

// Gives the signal to another thread and waits until its handler returns.
void raiseInAnotherThread(int signal) {
  std::thread other([signal] {
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    std::raise(signal);
  });
  other.join();
}

// A handler that waits for nobody is about to end the process when another thread wants a file.
std::atomic<bool> handlerSays = false;
std::atomic<bool> otherThreadStops = false;
void letAnotherThreadGoOn(int) {
  handlerSays = true;
  while (!otherThreadStops) continue;
}

TEST_F(FileReplacementTest, NoPartIsMadeOnceASignalIsAboutToEndTheProcess) {
  write(file_, "old");
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGTERM, SIG_DFL);
    removePartFilesOnSignals(letAnotherThreadGoOn);
    const auto stop = [] {
      otherThreadStops = true;
      return 0;
    };
    system_calls::hooks.pause = stop;  // waits for the end of the process
    system_calls::hooks.flock = [stop](int, int) {
      stop();
      while (true) pause();
      return 0;
    };
    std::thread other([this] {
      while (!handlerSays) continue;
      FileReplacement replacement(file_);
      replacement.make(content("new"));
    });
    std::raise(SIGTERM);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  EXPECT_EQ(read(file_), "old");
  EXPECT_THAT(others(), IsEmpty());
}

// Wherever a signal comes while files take their places, and to which thread.
TEST_F(FileReplacementTest, SignalsWaitForAllPlacesAndAreSaidOnce) {
  const std::string second = dir_.file("second");
  for (const bool sameThread : {false, true}) {
    write(file_, "old");
    write(second, "old");
    const std::string said = dir_.file("said");
    const pid_t child = fork();
    if (child == 0) {
      std::signal(SIGINT, SIG_DFL);
      saysTo = open(said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
      removePartFilesOnSignals(say);
      FileReplacement a(file_);
      FileReplacement b(second);
      a.make(content("new"));
      b.make(content("new"));
      bool first = true;
      system_calls::hooks.rename = [&](const std::string&, const std::string&) {
        if (!std::exchange(first, false)) return 0;
        sameThread ? static_cast<void>(std::raise(SIGINT)) : raiseInAnotherThread(SIGINT);
        return 0;
      };
      finishTogether(std::array{&a, &b});
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
    EXPECT_EQ(read(file_), "new");
    EXPECT_EQ(read(second), "new");
    EXPECT_EQ(read(said), "ended by 2\n");
  }
}

TEST_F(FileReplacementTest, ASecondSignalDoesNotWaitForThePlaces) {
  write(file_, "old");
  const std::string second = dir_.file("second");
  const std::string said = dir_.file("said");
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGINT, SIG_DFL);
    saysTo = open(said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    removePartFilesOnSignals(say);
    FileReplacement a(file_);
    FileReplacement b(second);
    a.make(content("new"));
    b.make(content("new"));
    system_calls::hooks.rename = [&](const std::string&, const std::string&) {
      raiseInAnotherThread(SIGINT);
      raiseInAnotherThread(SIGTERM);
      return 0;
    };
    finishTogether(std::array{&a, &b});
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  EXPECT_EQ(read(file_), "old");
  EXPECT_FALSE(std::filesystem::exists(second));
  EXPECT_EQ(read(said), "ended by 15\n");
}

// One set of files waits in the middle of taking its places until the other has come to the lock
// or, if there is none, through it.
TEST_F(FileReplacementTest, SetsOfFilesTakeTheirPlacesOneAfterTheOther) {
  constexpr std::size_t kFiles = 4;
  std::array<std::string, kFiles> names;
  for (std::size_t k = 0; k < kFiles; ++k) names[k] = dir_.file("file" + std::to_string(k));
  const auto place = [&](const std::string& text) {
    std::vector<std::unique_ptr<FileReplacement>> made;
    std::vector<FileReplacement*> files;
    for (const std::string& name : names) {
      made.push_back(std::make_unique<FileReplacement>(name));
      EXPECT_TRUE(made.back()->make(content(text)));
      files.push_back(made.back().get());
    }
    EXPECT_THAT(finishTogether(files), ElementsAre(0, 0, 0, 0));
  };
  std::atomic<int> renames = 0;
  std::atomic<bool> secondIsThere = false;
  const std::thread::id first = std::this_thread::get_id();
  system_calls::hooks.flock = [&](int descriptor, int) {
    struct stat status = {};
    if (std::this_thread::get_id() != first && fstat(descriptor, &status) == 0 &&
        S_ISDIR(status.st_mode)) {
      secondIsThere = true;
    }
    return 0;
  };
  std::thread second;
  system_calls::hooks.rename = [&](const std::string&, const std::string&) {
    if (std::this_thread::get_id() == first && ++renames == 2) {
      second = std::thread([&] {
        place("second");
        secondIsThere = true;
      });
      while (!secondIsThere) std::this_thread::yield();
    }
    return 0;
  };
  place("first");
  second.join();
  for (const std::string& name : names) EXPECT_EQ(read(name), "second");
}

TEST_F(FileReplacementTest, OneOfSeveralThatCannotTakeItsPlaceKeepsTheOthersFromNothing) {
  FileReplacement good(file_);
  FileReplacement bad(dir_.file("missing/result"));
  FileReplacement last(dir_.file("last"));
  EXPECT_TRUE(good.make(content("new")));
  EXPECT_FALSE(bad.make(content("new")));
  EXPECT_TRUE(last.make(content("new")));
  const std::array<FileReplacement*, 3> files = {&good, &bad, &last};
  EXPECT_THAT(finishTogether(files), ElementsAre(0, ENOENT, 0));
  EXPECT_EQ(read(dir_.file("last")), "new");
}

TEST(TextOfErrno, IsTheSystemsWordsOrNothing) {
  EXPECT_EQ(textOfErrno(ENOSPC), "No space left on device");
  EXPECT_EQ(textOfErrno(0), "");
}

}  // namespace
}  // namespace namespace_ratseg
