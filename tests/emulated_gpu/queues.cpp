#include "queues.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "threads.h"

namespace emulated_gpu {

namespace {

constexpr std::size_t kMostUnfinished = 1000;  // beyond it a GPU's driver makes the host wait, too
constexpr std::size_t kMostAhead = 16;         // pieces of work that a stream runs ahead

}  // namespace

WorkPtr Queues::append(Stream& stream, std::function<void()> run) {
  if (stream.graph != nullptr) {
    if (!run) return nullptr;
    stream.graph->nodes.push_back({stream.device, std::move(run), stream.nodesBefore});
    stream.nodesBefore = {stream.graph->nodes.size() - 1};
    return nullptr;
  }
  WorkPtr work = add(stream, stream.device, std::move(run), stream.before);
  stream.before = {work};
  return work;
}

void Queues::appendGraph(Stream& stream, const GraphExec& graph) {
  std::vector<WorkPtr> nodes;
  std::vector<bool> isLeaf(graph.nodes.size(), true);
  for (const Graph::Node& node : graph.nodes) {
    std::vector<WorkPtr> before = stream.before;
    for (const std::size_t k : node.before) {
      before.push_back(nodes[k]);
      isLeaf[k] = false;
    }
    nodes.push_back(add(stream, node.device, node.run, before));
  }
  if (!nodes.empty()) stream.before.clear();
  for (std::size_t k = 0; k < nodes.size(); ++k) {
    if (isLeaf[k]) stream.before.push_back(nodes[k]);
  }
}

WorkPtr Queues::add(const Stream& stream, int device, std::function<void()> run,
                    const std::vector<WorkPtr>& before) {
  const auto unfinished = [this] {
    return std::accumulate(unfinished_.begin(), unfinished_.end(), std::size_t{0});
  };
  if (unfinished() >= kMostUnfinished) {
    while (unfinished() > kMostUnfinished / 2) runOne();
    letHostGoOn();
  }
  auto work = std::make_shared<Work>();
  work->device = device;
  work->stream = &stream;
  work->run = std::move(run);
  for (const WorkPtr& other : before) {
    if (other->done) continue;
    other->after.push_back(work);
    ++work->missing;
  }
  ++unfinished_[static_cast<std::size_t>(device)];
  if (work->missing > 0) return work;
  if (work->run) {
    ready_.push_back(work);
  } else {
    end(*work);
  }
  return work;
}

// Marks the work done and makes ready what waited for it alone.
void Queues::end(Work& work) {
  std::vector<WorkPtr> marks;
  work.done = true;
  work.when = std::chrono::steady_clock::now();
  work.run = nullptr;
  --unfinished_[static_cast<std::size_t>(work.device)];
  for (WorkPtr& next : std::exchange(work.after, {})) {
    if (--next->missing > 0) continue;
    (next->run ? ready_ : marks).push_back(std::move(next));
  }
  for (const WorkPtr& mark : marks) end(*mark);
}

// Half of the choices are for one piece of work, half for a stream that gets ahead of the others.
std::size_t Queues::choose() {
  std::vector<std::size_t> ofFavourite;
  for (std::size_t k = 0; ahead_ > 0 && k < ready_.size(); ++k) {
    if (ready_[k]->stream == favourite_) ofFavourite.push_back(k);
  }
  if (!ofFavourite.empty()) {
    --ahead_;
    return ofFavourite[anyOf(ofFavourite.size())];
  }
  const std::size_t k = anyOf(ready_.size());
  favourite_ = ready_[k]->stream;
  ahead_ = anyOf(2) == 0 ? 0 : anyOf(kMostAhead);
  return k;
}

void Queues::letHostGoOn() {
  ahead_ = 0;
  stop_();
}

void Queues::runOne() {
  if (ready_.empty()) fault("work waits for work that never comes");
  std::swap(ready_[choose()], ready_.back());
  const WorkPtr work = std::move(ready_.back());
  ready_.pop_back();
  start_(work->device);
  work->run();
  end(*work);
}

void Queues::finish(const WorkPtr& work) {
  while (!work->done) runOne();
  letHostGoOn();
}

void Queues::finishDevice(int device) {
  while (unfinished_[static_cast<std::size_t>(device)] > 0) runOne();
  letHostGoOn();
}

}  // namespace emulated_gpu
