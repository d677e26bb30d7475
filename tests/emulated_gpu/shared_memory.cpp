#include "shared_memory.h"

#include <link.h>

#include <algorithm>
#include <cstring>

#include "threads.h"

namespace {
constexpr std::size_t kMost = 227 << 10;  // bytes of the dynamic part
constexpr std::size_t kBehind = 1 << 10;  // in which writes behind it are noticed
constexpr char kNew = '\xff';
}  // namespace

// The dynamic part, as the launchers name it (cuda_launch.h).
namespace namespace_ratseg {
thread_local double dynamic_shared[(kMost + kBehind) / sizeof(double)];
}

namespace emulated_gpu {

SharedMemory::SharedMemory(std::size_t dynamicBytes)
    : dynamic_(reinterpret_cast<char*>(namespace_ratseg::dynamic_shared)), bytes_(dynamicBytes) {
  const Part all = find();
  char* behind = dynamic_ + sizeof namespace_ratseg::dynamic_shared;
  parts_[0] = {all.first, static_cast<std::size_t>(dynamic_ - all.first)};
  parts_[1] = {behind, static_cast<std::size_t>(all.first + all.bytes - behind)};
  for (int k = 0; k < 2; ++k) {
    saved_[k].assign(parts_[k].first, parts_[k].first + parts_[k].bytes);
  }
  std::memset(dynamic_ + bytes_, kNew, kBehind);
}

SharedMemory::~SharedMemory() {
  for (int k = 0; k < 2; ++k) std::copy(saved_[k].begin(), saved_[k].end(), parts_[k].first);
}

void SharedMemory::renew() {
  for (const Part& part : parts_) std::memset(part.first, kNew, part.bytes);
  std::memset(dynamic_, kNew, bytes_);
}

void SharedMemory::check() const {
  const char* behind = dynamic_ + bytes_;
  if (std::any_of(behind, behind + kBehind, [](char c) { return c != kNew; })) {
    fault("a write behind the dynamic shared memory");
  }
}

SharedMemory::Part SharedMemory::find() {
  Part found;
  const auto visit = [](dl_phdr_info* program, std::size_t, void* result) {
    for (int k = 0; k < program->dlpi_phnum; ++k) {
      const auto& segment = program->dlpi_phdr[k];
      if (segment.p_type != PT_TLS) continue;
      *static_cast<Part*>(result) = {static_cast<char*>(program->dlpi_tls_data), segment.p_memsz};
    }
    return 1;  // the program comes first, libraries later
  };
  dl_iterate_phdr(visit, &found);
  const char* dynamic = reinterpret_cast<char*>(namespace_ratseg::dynamic_shared);
  if (dynamic < found.first || dynamic >= found.first + found.bytes) {
    fault("shared memory is not where it was expected");
  }
  return found;
}

}  // namespace emulated_gpu
