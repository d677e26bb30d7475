#ifndef RATSEG_DEVICE_HOST_FLUSH_DENORMALS_H
#define RATSEG_DEVICE_HOST_FLUSH_DENORMALS_H

#include <cstdint>

#if defined(__SSE__)
#include <immintrin.h>
#endif

namespace namespace_ratseg {

// While one lives, float arithmetic of its thread reads and gives 0 in place of denormal numbers
// (below 1.2e-38), which take processors a hundred times as long as others. A component of the dual
// field that shrinks every time the other one is clamped becomes denormal after some hundred
// iterations. The destructor restores the thread's previous mode. Without effect on
// processors other than x86 and 64-bit ARM.
class FlushDenormals {
 public:
  FlushDenormals() : before_(get()) { set(before_ | kFlush); }
  ~FlushDenormals() { set(before_); }
  FlushDenormals(const FlushDenormals&) = delete;
  FlushDenormals& operator=(const FlushDenormals&) = delete;

 private:
#if defined(__SSE__)
  using Mode = unsigned;
  static constexpr Mode kFlush = 0x8040;  // results, and operands
  static Mode get() { return _mm_getcsr(); }
  static void set(Mode mode) { _mm_setcsr(mode); }
#elif defined(__aarch64__)
  using Mode = std::uint64_t;
  static constexpr Mode kFlush = Mode{1} << 24;
  static Mode get() {
    Mode mode;
    asm volatile("mrs %0, fpcr" : "=r"(mode));
    return mode;
  }
  static void set(Mode mode) { asm volatile("msr fpcr, %0" : : "r"(mode)); }
#else
  using Mode = unsigned;
  static constexpr Mode kFlush = 0;
  static Mode get() { return 0; }
  static void set(Mode) {}
#endif

 public:
  static constexpr bool kWorks = kFlush != 0;

 private:
  Mode before_;
};

}  // namespace namespace_ratseg

#endif
