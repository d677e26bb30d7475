#ifndef RATSEG_MODELS_LEARN_H
#define RATSEG_MODELS_LEARN_H

// From marked pixels to a model of them.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "models/forest.h"
#include "models/held_out.h"
#include "models/picture_features.h"
#include "models/strokes.h"

namespace namespace_ratseg {

// Costs by colour of samples from other samples: out[k * classCount + c] is what class c costs at
// the k-th of asked, where known are the samples that may be known.
using ColourCosts = std::function<void(const std::vector<const Sample*>& known,
                                       const std::vector<const Sample*>& asked, float* out)>;

struct LearnSettings {
  std::size_t trees = 100;
  std::size_t heldOutTrees = 40;  // of each forest that is only grown to be asked
  std::size_t folds = 4;
  std::size_t samples = 18000;  // about so many of all labels together
  float most = 10;              // greatest cost
  std::optional<float> mix;     // the part of the forest; none: chosen
  ColourCosts colourCosts;      // empty: the forest alone
  // Told now and then how much of the work is done, 0 to 1.
  std::function<void(double)> progress;
};

struct Learned {
  std::vector<std::uint32_t> labels;  // class c is this label; increasing
  Forest forest;
  Calibration calibration;
  float mix = 1;  // the part of the forest
  std::size_t heldOutStrokes = 0;
  std::vector<double> confusion;  // held_out.h; empty where nothing could be held out
};

// Needs VIGRA, and at least two labels that are marked. The same arguments give the same model, for
// any number of threads.
Learned learn(PictureFeatures& features, const Marks& marks, const LearnSettings& settings);

}  // namespace namespace_ratseg

#endif
