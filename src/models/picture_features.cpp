#include "models/picture_features.h"

#include <algorithm>

namespace namespace_ratseg {

PictureFeatures::PictureFeatures(const Channels& picture, std::size_t blockBytes)
    : bank_(picture), w_(picture.w), h_(picture.h), rows_(bank_.rowsWithin(blockBytes)) {
  held_ = blocks();
}

PictureFeatures::Block PictureFeatures::block(std::size_t number) {
  const std::size_t first = number * rows_, last = std::min(h_, first + rows_);
  if (held_ != number) {
    held_ = blocks();
    values_.resize((last - first) * w_ * bank_.featureCount());
    bank_.compute(first, last, values_.data(), step);
    held_ = number;
  }
  return {first, last, values_.data()};
}

std::vector<float> PictureFeatures::gather(const std::vector<Sample>& samples) {
  const std::size_t features = bank_.featureCount();
  std::vector<float> result(features * samples.size());
  for (std::size_t s = 0; s < samples.size();) {
    const Block rows = block(samples[s].pixel / w_ / rows_);
    const std::size_t begin = rows.first * w_, size = (rows.last - rows.first) * w_;
    for (; s < samples.size() && samples[s].pixel < begin + size; ++s) {
      const float* own = rows.values + (samples[s].pixel - begin);
      for (std::size_t f = 0; f < features; ++f) result[f * samples.size() + s] = own[f * size];
    }
  }
  return result;
}

}  // namespace namespace_ratseg
