#ifndef RATSEG_APP_DATATERM_COSTS_H
#define RATSEG_APP_DATATERM_COSTS_H

// The costs that ratseg-dataterm writes, by colour, by a random forest or by both.

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "app/dataterm/input_picture.h"
#include "app/dataterm/label_picture.h"
#include "app/dataterm/options.h"
#include "models/channels.h"
#include "models/kept_model.h"

namespace namespace_ratseg {

// What the costs are made from. All of it stays the caller's, and where it is.
struct CostInput {
  const InputPicture& picture;
  const InputPicture& scribbled;                 // that the marks were drawn on; may be the picture
  const LabelPicture& scribbles;                 // without pixels where there are no marks
  const std::vector<std::vector<RGB>>& colours;  // marked with each label
  std::size_t labels;

  bool marksAreOnImage() const { return &picture == &scribbled && !scribbles.pixels.empty(); }
};

// The picture as models see it, in full depth and with all channels: grey where its colours' are
// equal everywhere, unless a model of colour pictures asks.
Channels channelsOf(const InputPicture& picture, const KeptModel* model = nullptr);

// Computes costs, by a model that it learns from the marks or by a kept one.
class CostMaker {
 public:
  // Unless a model is there already, learns one, and says on standard error what it makes of
  // strokes that it did not see; what looks wrong there is a warning. Throws InputError.
  CostMaker(const CostInput& input, const DatatermOptions& options,
            std::optional<KeptModel> known = {});
  ~CostMaker();
  CostMaker(const CostMaker&) = delete;
  CostMaker& operator=(const CostMaker&) = delete;

  // A plane of costs per label, and behind them the void label's where there is one. Says what
  // shares the picture itself speaks of, beside those of the truth (empty: none).
  std::vector<float> costs(const std::vector<double>& shares);

  // The model, to be kept; none where costs are by colour alone.
  const std::optional<KeptModel>& model() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace namespace_ratseg

#endif
