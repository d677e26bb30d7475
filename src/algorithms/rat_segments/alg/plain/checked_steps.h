#ifndef RATSEG_ALG_PLAIN_CHECKED_STEPS_H
#define RATSEG_ALG_PLAIN_CHECKED_STEPS_H

#include <mutex>
#include <string_view>

#include "device/source_location.h"
#include "util/cudadefs.h"

namespace namespace_ratseg {

// Checks of the solver's calls. A failed call prints a path and a line. The path is fixed and the
// same for all files, because readers of that message know the solver by it; so that the line still
// tells the files apart, each file's numbers begin at a thousand of its own.
inline constexpr const char* kImplPath = "src/algorithms/rat_segments/alg/rat_seg_impl";
struct FileLines {
  std::string_view file;
  unsigned long begin;  // of the numbers that are printed for its lines
};
inline constexpr FileLines kFileLines[] = {
    {"rat_seg_impl.cpp", 0},        {"plain_steps.cpp", 1000},  {"rat_seg_impl_transfer.cpp", 2000},
    {"strip_engine.cpp", 3000},     {"certifier.cpp", 4000},    {"rat_seg_impl_finite.cpp", 5000},
    {"rat_seg_impl_run.cpp", 6000}, {"solver_state.cpp", 7000}, {"strip_engine_step.cpp", 8000},
    {"strip_bands.cpp", 9000},      {"strip_queues.cpp", 10000}};

// The number that is printed for a line of a file, whose path may be longer.
constexpr unsigned long printedLine(std::string_view path, unsigned long line) {
  const std::string_view name = path.substr(path.find_last_of('/') + 1);
  for (const FileLines& lines : kFileLines) {
    if (name == lines.file) return lines.begin + line;
  }
  return line;
}

// Held while a solver writes to standard output, so that lines of several threads do not mix.
inline std::mutex standardOutputMutex;

// The checks of util/cudadefs.h, with the place of the call.
inline void check(SourceLocation where = SourceLocation::current()) {
  cuda_check(kImplPath, printedLine(where.file_name(), where.line()));
}
inline void checkMalloc(SourceLocation where = SourceLocation::current()) {
  cuda_check_malloc(kImplPath, printedLine(where.file_name(), where.line()));
}

}  // namespace namespace_ratseg

#endif
