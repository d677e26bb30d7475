#include "models/learn.h"

#include <algorithm>
#include <set>

namespace namespace_ratseg {

namespace {

constexpr std::uint32_t kSeed = 1;
constexpr std::size_t kLeastPerLabel = 200;

// Counts trees for whoever wants to know.
class TreeCount {
 public:
  TreeCount(const LearnSettings& settings, std::size_t trees)
      : progress_(settings.progress), trees_(trees) {}
  std::function<void()> step() {
    if (!progress_) return {};
    return [this] { progress_(static_cast<double>(++done_) / static_cast<double>(trees_)); };
  }

 private:
  const std::function<void(double)>& progress_;
  std::size_t trees_;
  std::size_t done_ = 0;
};

// The samples with their features, and classes instead of labels.
struct Table {
  std::vector<Sample> samples;
  std::vector<std::uint32_t> labels;
  std::vector<float> features;
  std::size_t featureCount = 0;

  std::uint32_t classOf(const Sample& sample) const {
    return static_cast<std::uint32_t>(std::lower_bound(labels.begin(), labels.end(), sample.label) -
                                      labels.begin());
  }

  // The features of some of the samples.
  std::vector<float> featuresOf(const std::vector<const Sample*>& some) const {
    std::vector<float> result;
    result.reserve(featureCount * some.size());
    for (std::size_t f = 0; f < featureCount; ++f) {
      const float* column = features.data() + f * samples.size();
      for (const Sample* sample : some) result.push_back(column[sample - samples.data()]);
    }
    return result;
  }

  Forest grow(const std::vector<const Sample*>& some, std::size_t trees, std::uint32_t seed,
              const std::function<void()>& step) const {
    const std::vector<float> values = featuresOf(some);
    std::vector<std::uint32_t> classes;
    for (const Sample* sample : some) classes.push_back(classOf(*sample));
    const TreeSamples data = {values.data(), classes.data(), some.size(), featureCount,
                              labels.size()};
    TreeSettings settings;
    // Each tree sees two thirds of the most frequent class, and as many of every other.
    std::vector<std::size_t> counts(labels.size());
    for (const std::uint32_t c : classes) ++counts[c];
    settings.perClass = *std::max_element(counts.begin(), counts.end());
    settings.leastToSplit = 1;
    return Forest::grow(data, settings, trees, seed, step);
  }
};

Table tableOf(PictureFeatures& features, const Marks& marks, const LearnSettings& settings) {
  const std::vector<Stroke> strokes = strokesOf(marks);
  std::set<std::uint32_t> labels;
  for (const Stroke& stroke : strokes) labels.insert(static_cast<std::uint32_t>(stroke.label));
  Table table;
  table.labels.assign(labels.begin(), labels.end());
  const std::size_t perLabel =
      std::max(kLeastPerLabel, settings.samples / std::max<std::size_t>(1, labels.size()));
  table.samples = samplesOf(strokes, perLabel, settings.folds);
  table.features = features.gather(table.samples);
  table.featureCount = table.features.size() / table.samples.size();
  return table;
}

// Adds what models of the other folds say of one fold.
void holdOut(const Table& table, std::uint32_t fold, const LearnSettings& settings,
             const std::function<void()>& step, HeldOut& result) {
  std::vector<const Sample*> known, asked;
  for (const Sample& sample : table.samples) {
    (sample.fold == fold ? asked : known).push_back(&sample);
  }
  if (asked.empty()) return;
  const std::size_t classes = table.labels.size(), before = result.classes.size();
  const Forest forest = table.grow(known, settings.heldOutTrees, kSeed + 1000 * (fold + 1), step);
  std::set<std::uint32_t> strokes;
  for (const Sample* sample : asked) {
    result.classes.push_back(table.classOf(*sample));
    strokes.insert(sample->stroke);
  }
  result.strokes += strokes.size();
  const std::vector<float> features = table.featuresOf(asked);
  result.probabilities.resize(result.size() * classes);
  forest.probabilities(features.data(), asked.size(), asked.size(),
                       result.probabilities.data() + before * classes);
  result.colourCosts.resize(result.size() * classes);
  if (settings.colourCosts) {
    settings.colourCosts(known, asked, result.colourCosts.data() + before * classes);
  }
}

}  // namespace

Learned learn(PictureFeatures& features, const Marks& marks, const LearnSettings& settings) {
  const Table table = tableOf(features, marks, settings);
  TreeCount count(settings, settings.folds * settings.heldOutTrees + settings.trees);
  const std::function<void()> step = count.step();
  HeldOut heldOut;
  heldOut.classCount = table.labels.size();
  for (std::uint32_t fold = 0; fold < settings.folds; ++fold) {
    holdOut(table, fold, settings, step, heldOut);
  }
  Learned model;
  model.labels = table.labels;
  model.calibration = {fitTemperature(heldOut, settings.most), settings.most};
  if (!settings.colourCosts) {
    model.mix = 1;
  } else {
    model.mix = settings.mix ? *settings.mix : fitMix(heldOut, model.calibration);
  }
  model.heldOutStrokes = heldOut.strokes;
  if (heldOut.size() > 0) model.confusion = confusion(heldOut, model.calibration, model.mix);
  std::vector<const Sample*> all;
  for (const Sample& sample : table.samples) all.push_back(&sample);
  model.forest = table.grow(all, settings.trees, kSeed, step);
  return model;
}

}  // namespace namespace_ratseg
