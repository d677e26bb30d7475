#ifndef RATSEG_MODELS_HELD_OUT_H
#define RATSEG_MODELS_HELD_OUT_H

// What models say of strokes that they have not seen, and what follows from it: how sure the forest
// may be, and how much of each model is right. docs/models.md has the formulas.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace namespace_ratseg {

// Samples that were held out. Classes are the marked labels, in their order.
struct HeldOut {
  std::size_t classCount = 0;
  std::size_t strokes = 0;             // how many they are of
  std::vector<std::uint32_t> classes;  // of each sample
  std::vector<float> probabilities;    // the forest's, classCount per sample
  std::vector<float> colourCosts;      // likewise

  std::size_t size() const { return classes.size(); }
};

// From the probabilities that a forest gives to its costs.
struct Calibration {
  float temperature = 1;
  float most = 10;  // greatest cost

  // costs may be probabilities.
  void costs(const float* probabilities, std::size_t classCount, float* costs) const;
};

// The temperature, 1 to 8, under which held-out samples are likeliest, each class weighing alike; 1
// without samples. Never below 1: people mark what is clear, so the rest is no clearer.
float fitTemperature(const HeldOut& samples, float most);

// The part of the forest, 0.05 to 0.95, under which held-out samples are likeliest, with a prior
// towards one half.
float fitMix(const HeldOut& samples, const Calibration& calibration);

// How often samples of each class (row) get the label of each (column) at that mix: parts of the
// row's samples; rows without samples are 0.
std::vector<double> confusion(const HeldOut& samples, const Calibration& calibration, float mix);

}  // namespace namespace_ratseg

#endif
