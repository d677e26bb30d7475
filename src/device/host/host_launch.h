#ifndef RATSEG_DEVICE_HOST_HOST_LAUNCH_H
#define RATSEG_DEVICE_HOST_HOST_LAUNCH_H

// Helpers for host launchers.

#include <atomic>
#include <cstddef>
#include <exception>

#include "device/host/host_backend.h"
#include "device/selection.h"

namespace namespace_ratseg {

// Opens a launch on the current backend, which must be the host; see HostBackend::admitLaunch.
inline bool admitHostLaunch(const char* kernel, const LaunchShape& shape) {
  return static_cast<HostBackend&>(backend()).admitLaunch(kernel, shape);
}

// Below this many elements of work a launch stays on one thread.
inline constexpr std::size_t kParallelWork = 16384;

// Keeps the first exception of several threads: one that left an OpenMP region would end the
// process.
class FirstException {
 public:
  // Calls f, and keeps what it throws if nothing was thrown before.
  template <class F>
  void guard(F&& f) noexcept {
    try {
      f();
    } catch (...) {
      if (!thrown_.exchange(true)) first_ = std::current_exception();
    }
  }
  // True if anything has been thrown. Reliable only after a barrier of the threads.
  bool any() const { return thrown_; }
  // Throws the exception kept, if any; call it when the threads are done.
  void rethrow() const {
    if (first_) std::rethrow_exception(first_);
  }

 private:
  std::atomic<bool> thrown_ = false;
  std::exception_ptr first_;
};

// Calls body(i) for i in [0, count), spread over the host's threads in fixed contiguous pieces.
// work is the number of elements of all calls together. Bodies must not depend on each other, so
// results are the same for any number of threads. One of the exceptions that bodies throw is thrown
// when all other calls are done.
template <class Body>
void parallelFor(std::size_t count, std::size_t work, Body&& body) {
  const auto last = static_cast<std::ptrdiff_t>(count);
  FirstException exception;
#pragma omp parallel for schedule(static) if (work >= kParallelWork)
  for (std::ptrdiff_t i = 0; i < last; ++i) {
    exception.guard([&] { body(static_cast<std::size_t>(i)); });
  }
  exception.rethrow();
}

// Calls first(i) for i in [0, count), then between() once, then second(i) for i in [0, count), as
// parallelFor does, with one start of the threads for all. After an exception the parts that follow
// are left out.
template <class First, class Between, class Second>
void parallelForInTwoParts(std::size_t count, std::size_t work, First&& first, Between&& between,
                           Second&& second) {
  const auto last = static_cast<std::ptrdiff_t>(count);
  FirstException exception;
  bool complete = false;  // the first part and what is between
#pragma omp parallel if (work >= kParallelWork)
  {
#pragma omp for schedule(static)
    for (std::ptrdiff_t i = 0; i < last; ++i) {
      exception.guard([&] { first(static_cast<std::size_t>(i)); });
    }
#pragma omp master
    {
      if (!exception.any()) exception.guard(between);
      complete = !exception.any();
    }
#pragma omp barrier
// The end of the region waits for all.
#pragma omp for schedule(static) nowait
    for (std::ptrdiff_t i = 0; i < last; ++i) {
      if (complete) exception.guard([&] { second(static_cast<std::size_t>(i)); });
    }
  }
  exception.rethrow();
}

}  // namespace namespace_ratseg

#endif
