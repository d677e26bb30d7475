#ifndef RATSEG_APP_DATATERM_PROBLEM_H
#define RATSEG_APP_DATATERM_PROBLEM_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "app/dataterm/input_picture.h"
#include "app/dataterm/label_picture.h"
#include "app/dataterm/options.h"
#include "models/kept_model.h"
#include "util/rgb.h"

namespace namespace_ratseg {

// The task to compute, read from the files that the options name.
struct Problem {
  InputPicture picture;                   // to segment
  std::optional<InputPicture> other;      // that the scribbles were drawn on, where it is another
  LabelPicture scribbles;                 // without pixels where there are none
  std::size_t labels = 0;                 // without the void background label
  std::vector<std::vector<RGB>> colours;  // of each label; empty where costs are given
  std::vector<float> costs;               // of another program; empty where scribbles are given
  float voidCost;                         // of the void background label, more than all others
  std::vector<double> shares;             // empty without -truth

  // Throws InputError. known is a kept model, which makes scribbles unnecessary.
  Problem(const DatatermOptions& options, const std::optional<KeptModel>& known);

  const InputPicture& scribbled() const { return other ? *other : picture; }

 private:
  void readScribbles(const DatatermOptions& options, const std::optional<LabelPicture>& truth,
                     const std::optional<KeptModel>& known);
  void readCosts(const DatatermOptions& options, const std::optional<LabelPicture>& truth);
  void takeShares(const DatatermOptions& options, const LabelPicture& truth);
};

// "640 x 480 pixels".
std::string sizeOf(const Image& image);

// What -colours prints of the scribbles.
std::string coloursOfScribbles(const DatatermOptions& options);

}  // namespace namespace_ratseg

#endif
