#ifndef RATSEG_APP_DATATERM_COSTS_H
#define RATSEG_APP_DATATERM_COSTS_H

// The costs that ratseg-dataterm writes, by colour, by a random forest or by both.

#include <cstddef>
#include <memory>
#include <vector>

#include "app/dataterm/label_picture.h"
#include "app/dataterm/options.h"
#include "app/load_picture.h"
#include "models/channels.h"

namespace namespace_ratseg {

// What the costs are made from. All of it stays the caller's, and where it is.
struct CostInput {
  const Image& image;
  const Image& scribbled;                        // that the marks were drawn on; may be the image
  const LabelPicture& scribbles;                 // without pixels where there are no marks
  const std::vector<std::vector<RGB>>& colours;  // marked with each label
  std::size_t labels;

  bool marksAreOnImage() const { return &image == &scribbled && !scribbles.pixels.empty(); }
};

// The picture as the models see it.
Channels channelsOf(const Image& image);

// Learns from marks, or reads a kept model, and computes costs.
class CostMaker {
 public:
  // Learns, and says on standard error what the models make of strokes that they did not see; what
  // looks wrong there is a warning. Throws InputError.
  CostMaker(const CostInput& input, const DatatermOptions& options);
  ~CostMaker();
  CostMaker(const CostMaker&) = delete;
  CostMaker& operator=(const CostMaker&) = delete;

  // A plane of costs per label, and behind them the void label's where there is one. Says what
  // shares the picture itself speaks of, beside those of the truth (empty: none).
  std::vector<float> costs(const std::vector<double>& shares);

  // The kept form of the model, for -save-model.
  std::string kept() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace namespace_ratseg

#endif
