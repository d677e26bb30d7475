#ifndef RATSEG_MODELS_PICTURE_FEATURES_H
#define RATSEG_MODELS_PICTURE_FEATURES_H

#include <cstddef>
#include <functional>
#include <vector>

#include "device/ceil_div.h"
#include "models/filter_bank.h"
#include "models/strokes.h"

namespace namespace_ratseg {

// Features of a whole picture, a block of rows at a time; a picture that fits into one block is
// computed once.
class PictureFeatures {
 public:
  static constexpr std::size_t kBlockBytes = std::size_t{768} << 20;

  explicit PictureFeatures(const Channels& picture, std::size_t blockBytes = kBlockBytes);

  struct Block {
    std::size_t first = 0, last = 0;  // rows
    const float* values = nullptr;    // as FilterBank::compute writes them, until the next block
  };

  std::size_t blocks() const { return ceilDiv(h_, rows_); }
  Block block(std::size_t number);
  std::size_t pixels() const { return w_ * h_; }
  std::size_t w() const { return w_; }

  // The features of the samples, which are sorted by pixel: feature f of sample s at
  // f * samples.size() + s.
  std::vector<float> gather(const std::vector<Sample>& samples);

  // How many steps one time through all blocks has, and who is told of each.
  std::size_t steps() const { return blocks() * bank_.steps(); }
  std::function<void()> step;

 private:
  FilterBank bank_;
  std::size_t w_, h_, rows_;
  std::size_t held_;  // the block in values_, blocks() if none
  std::vector<float> values_;
};

}  // namespace namespace_ratseg

#endif
