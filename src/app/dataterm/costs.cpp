#include "app/dataterm/costs.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

#include "algorithms/rat_segments/alg/dataterm/dataterm_host.h"
#include "algorithms/rat_segments/alg/rat_seg.h"
#include "app/dataterm/forbidden.h"
#include "app/dataterm/forest_costs.h"
#include "app/dataterm/input_error.h"
#include "app/dataterm/model_reports.h"
#include "app/dataterm/work_line.h"
#include "app/messages.h"
#include "models/learn.h"

namespace namespace_ratseg {

namespace {

using Kind = ModelOptions::Kind;

std::size_t countMarked(const CostInput& input) {
  std::size_t marked = 0;
  for (const auto& colours : input.colours) marked += colours.empty() ? 0 : 1;
  return marked;
}

// Whether there is a forest to learn; says why not.
bool learnsForest(const CostInput& input, const ModelOptions& model) {
  if (model.kind == Kind::colour) return false;
  if (!haveVigra()) {
    if (model.given) {
      throw InputError("-model", "colour, since this program was built without VIGRA",
                       "one that needs a random forest");
    }
    note("built without VIGRA: costs by colour alone, as with -model colour");
    return false;
  }
  if (countMarked(input) >= 2) return true;
  note("a single label is marked: costs by colour alone");
  return false;
}

// What samples cost by colour where others are known.
ColourCosts colourCostsOf(const CostInput& input, const DatatermOptions& options) {
  return [&input, &options](const std::vector<const Sample*>& known,
                            const std::vector<const Sample*>& asked, float* out) {
    const RGB* pixels = input.scribbled.image.pixels.get();
    std::vector<RGB> wanted;
    for (const Sample* sample : asked) wanted.push_back(pixels[sample->pixel]);
    std::vector<std::vector<RGB>> colours(input.labels);
    for (const Sample* sample : known) colours[sample->label].push_back(pixels[sample->pixel]);
    std::vector<float> costs(asked.size());
    const std::size_t classes = countMarked(input);
    std::size_t c = 0;
    for (std::size_t label = 0; label < input.labels; ++label) {
      if (input.colours[label].empty()) continue;
      scribbleDatatermHost(costs.data(), wanted.data(), wanted.size(), colours[label].data(),
                           colours[label].size(), options.sigma, options.thr);
      for (std::size_t k = 0; k < asked.size(); ++k) out[k * classes + c] = costs[k];
      ++c;
    }
  };
}

// Costs by colour of all labels in front of rho.
void writeColourCosts(const CostInput& input, const DatatermOptions& options, float sigma,
                      float* rho) {
  RatSeg solver;
  Params& par = solver.getParams();
  par.w = static_cast<std::size_t>(input.picture.image.w);
  par.h = static_cast<std::size_t>(input.picture.image.h);
  par.n = input.labels;
  if (!solver.alloc()) throw std::runtime_error("could not allocate solver");
  std::vector<RGB*> lists;
  std::vector<std::size_t> counts;
  for (const auto& list : input.colours) {
    lists.push_back(const_cast<RGB*>(list.data()));
    counts.push_back(list.size());
  }
  solver.setDataterm(input.picture.image.pixels.get(), lists.data(), counts.data(), sigma,
                     options.thr);
  solver.getDataterm(rho);
  solver.free();
}

// The marked colours of these labels, evenly thinned where there are many.
std::vector<std::vector<std::array<float, 3>>> keptColours(
    const CostInput& input, const std::vector<std::uint32_t>& labels) {
  constexpr std::size_t kMost = 65536;
  std::vector<std::vector<std::array<float, 3>>> kept;
  for (const std::uint32_t label : labels) {
    const std::vector<RGB>& all = input.colours[label];
    const std::size_t count = std::min(all.size(), kMost);
    kept.emplace_back();
    for (std::size_t k = 0; k < count; ++k) {
      const RGB& colour = all[k * all.size() / count];
      kept.back().push_back({colour.x, colour.y, colour.z});
    }
  }
  return kept;
}

std::string kindText(ChannelKind kind, std::size_t planes) {
  if (kind == ChannelKind::grey) return "grey pictures";
  if (kind == ChannelKind::colour) return "colour pictures";
  return "pictures of " + std::to_string(planes) + " channels";
}

std::string kindText(const Channels& channels) {
  return kindText(channels.kind, channels.data.size());
}

// Other labels than the marked one cost too much to be chosen.
void keepMarks(const CostInput& input, float tooDear, std::vector<float>& rho) {
  const std::size_t pixels = input.picture.image.count();
  for (std::size_t p = 0; p < pixels; ++p) {
    const std::size_t mark = input.scribbles.pixels[p];
    if (mark == 0) continue;
    for (std::size_t k = 0; k < input.labels; ++k) {
      if (k + 1 != mark) rho[k * pixels + p] = tooDear;
    }
  }
}

}  // namespace

Channels channelsOf(const InputPicture& picture, const KeptModel* model) {
  Channels channels;
  channels.w = static_cast<std::size_t>(picture.image.w);
  channels.h = static_cast<std::size_t>(picture.image.h);
  channels.kind = ChannelKind::colour;
  if (const std::optional<Raster>& raster = picture.raster) {
    for (std::size_t c = 0; c < raster->channels; ++c) channels.data.push_back(raster->plane(c));
    if (raster->colours == Raster::Colours::grey) channels.kind = ChannelKind::grey;
    if (raster->colours == Raster::Colours::other) channels.kind = ChannelKind::other;
  } else {
    const RGB* first = picture.image.pixels.get();
    channels.step = sizeof(RGB) / sizeof(float);
    channels.data = {&first->x, &first->y, &first->z};
  }
  const bool asColour = model != nullptr && model->kind == ChannelKind::colour;
  return asColour ? channels : greyWhereEqual(channels);
}

struct CostMaker::State {
  const CostInput& input;
  const DatatermOptions& options;
  std::optional<KeptModel> model;           // none: colours alone
  std::optional<PictureFeatures> features;  // of the image, where they are there already

  void learnModel();
  void checkKnownModel() const;
};

void CostMaker::State::learnModel() {
  WorkLine line;
  const Channels channels = channelsOf(input.scribbled);
  PictureFeatures seen(channels);
  LearnSettings settings;
  settings.most = options.thr;
  settings.mix = options.model.mix;
  if (options.model.kind != Kind::forest) settings.colourCosts = colourCostsOf(input, options);
  settings.progress = [&](double part) { line.show("learning", part); };
  std::size_t done = 0;
  seen.step = [&] {
    line.show("features", static_cast<double>(++done) / static_cast<double>(seen.steps()));
  };
  const Marks marks = {input.scribbles.w, input.scribbles.h, input.scribbles.pixels.data()};
  model.emplace();
  model->learned = learn(seen, marks, settings);
  model->kind = channels.kind;
  model->planes = static_cast<std::uint32_t>(channels.data.size());
  model->labelCount = static_cast<std::uint32_t>(input.labels);
  model->sigma = options.sigma;
  if (settings.colourCosts) model->colours = keptColours(input, model->learned.labels);
  seen.step = {};
  if (input.marksAreOnImage()) features.emplace(std::move(seen));
}

void CostMaker::State::checkKnownModel() const {
  const Channels channels = channelsOf(input.picture, &*model);
  if (channels.kind == model->kind && channels.data.size() == model->planes) return;
  throw InputError(options.model.file, "a model of " + kindText(channels),
                   "one of " + kindText(model->kind, model->planes));
}

CostMaker::CostMaker(const CostInput& input, const DatatermOptions& options,
                     std::optional<KeptModel> known)
    : state_(new State{input, options, std::move(known), {}}) {
  if (state_->model) {
    state_->model->learned.calibration.most = options.thr;
    state_->checkKnownModel();
  } else if (learnsForest(input, options.model)) {
    state_->learnModel();
    reportLearned(state_->model->learned, options);
  }
}

CostMaker::~CostMaker() = default;

std::vector<float> CostMaker::costs(const std::vector<double>& shares) {
  const CostInput& input = state_->input;
  const DatatermOptions& options = state_->options;
  const std::size_t pixels = input.picture.image.count();
  const std::size_t planes = input.labels + (options.sharesOfImage ? 1 : 0);
  std::vector<float> rho(planes * pixels, options.voidCost());
  const std::optional<KeptModel>& model = state_->model;
  if (model && model->learned.mix >= 1) {
    std::fill_n(rho.begin(), input.labels * pixels, options.thr);
  } else {
    writeColourCosts(input, options, model ? model->sigma : options.sigma, rho.data());
  }
  if (model) {
    if (!state_->features) state_->features.emplace(channelsOf(input.picture, &*model));
    WorkLine line;
    addForestCosts(model->learned, *state_->features, input.labels, line, rho.data());
    state_->features.reset();
    line.erase();
    reportShares(rho.data(), input.labels, pixels, shares, options);
  }
  if (options.model.hardStrokes() && input.marksAreOnImage()) {
    keepMarks(input, options.voidCost(), rho);
  }
  forbidLabels(options, input.picture.image, input.labels, options.voidCost(), rho);
  return rho;
}

const std::optional<KeptModel>& CostMaker::model() const { return state_->model; }

}  // namespace namespace_ratseg
