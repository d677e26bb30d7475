// careless FAULT: writes result.txt, which says which problem it is of, and does the named thing
// wrong where a write fails. sees_faults.py shows that each is seen.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr char kResult[] = "result.txt";

// Writes the text in two halves; whether both were written.
bool save(const char* file, const std::string& text) {
  const int out = open(file, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  const std::size_t half = text.size() / 2;
  bool ok = true;
  for (const std::string& part : {text.substr(0, half), text.substr(half)}) {
    ok = write(out, part.data(), part.size()) == static_cast<ssize_t>(part.size()) && ok;
  }
  close(out);
  return ok;
}

int fail() {
  std::puts("ERROR: a write failed");
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string fault = argc == 3 ? argv[1] : "";
  const std::string text = "The result of problem " + std::string(argv[argc - 1]) + "\n";
  if (fault == "torn") {
    if (!save(kResult, text)) return fail();
  } else {
    if (!save("beside.part", text)) {
      if (fault == "leftover") return fail();
      std::remove("beside.part");
      if (fault == "crash") std::raise(SIGSEGV);
      if (fault == "hang") pause();
      if (fault == "lost") std::remove(kResult);
      if (fault == "silent") return 0;
      if (fault == "mute") return 1;
      if (fault == "status") return 7;
      if (fault == "foreign") std::fputs("something went wrong somewhere\n", stderr);
      if (fault == "false") std::puts("Saved result.txt");
      return fail();
    }
    std::rename("beside.part", kResult);
  }
  std::puts("Saved result.txt");
  return 0;
}
