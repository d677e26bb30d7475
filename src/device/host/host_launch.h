#ifndef RATSEG_DEVICE_HOST_HOST_LAUNCH_H
#define RATSEG_DEVICE_HOST_HOST_LAUNCH_H

// What host launchers are made of.

#include <cstddef>

#include "device/host/host_backend.h"
#include "device/selection.h"

namespace namespace_ratseg {

// Opens a launch on the current backend, which must be the host; see HostBackend::admitLaunch.
inline bool admitHostLaunch(const char* kernel, const LaunchShape& shape) {
  return static_cast<HostBackend&>(backend()).admitLaunch(kernel, shape);
}

// Below this many elements of work a launch stays on one thread.
inline constexpr std::size_t kParallelWork = 16384;

// Calls body(i) for i in [0, count), spread over the host's threads in fixed contiguous pieces.
// work is the number of elements of all calls together. Bodies must not depend on each other, so
// results are the same for any number of threads.
template <class Body>
void parallelFor(std::size_t count, std::size_t work, Body&& body) {
  const auto last = static_cast<std::ptrdiff_t>(count);
#pragma omp parallel for schedule(static) if (work >= kParallelWork)
  for (std::ptrdiff_t i = 0; i < last; ++i) body(static_cast<std::size_t>(i));
}

// Calls first(i) for i in [0, count), then between() once, then second(i) for i in [0, count), as
// parallelFor does, with one start of the threads for all.
template <class First, class Between, class Second>
void parallelForInTwoParts(std::size_t count, std::size_t work, First&& first, Between&& between,
                           Second&& second) {
  const auto last = static_cast<std::ptrdiff_t>(count);
#pragma omp parallel if (work >= kParallelWork)
  {
#pragma omp for schedule(static)
    for (std::ptrdiff_t i = 0; i < last; ++i) first(static_cast<std::size_t>(i));
#pragma omp master
    between();
#pragma omp barrier
#pragma omp for schedule(static)
    for (std::ptrdiff_t i = 0; i < last; ++i) second(static_cast<std::size_t>(i));
  }
}

}  // namespace namespace_ratseg

#endif
