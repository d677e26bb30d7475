#ifndef RATSEG_UTIL_RND_H
#define RATSEG_UTIL_RND_H

namespace namespace_ratseg {

// Random numbers of the C library's generator, rand(), whose state is the process's: not for
// several threads at once.
class Rnd {
 public:
  // Starts the generator's sequence that belongs to seed.
  static void randomize(int seed);
  // The same with a seed taken from the time; returns that seed.
  static int randomize();

  // Gaussian with mean 0 and standard deviation sigma.
  static float noise(float sigma);
  // Uniform in [0, max].
  static float random(float max);
  // Uniform in [min, max].
  static float random(float min, float max);
  // One of 0, 1, ..., n - 1; n >= 1.
  static float randomInt(int n);
};

}  // namespace namespace_ratseg

#endif
