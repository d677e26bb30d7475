#include "threads.h"

#include <algorithm>
#include <boost/context/fiber.hpp>
#include <boost/context/fixedsize_stack.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

#include "cuda_runtime.h"
#include "shared_memory.h"

namespace emulated_gpu {

namespace {

constexpr std::size_t kStackBytes = 64 << 10;
constexpr std::size_t kStackShift = 192;  // keeps the stacks' ends out of each other's cache lines
constexpr unsigned kWarp = 32;

enum class State { kAtBlock, kAtWarp, kEnded };

// A thread of the block that runs, on a stack that later blocks use again.
struct Thread {
  boost::context::fiber own, scheduler;
  State state = State::kEnded;
  Index index;
  unsigned number = 0;
  std::source_location where;     // it waits for the block
  unsigned mask = 0;              // of the lanes that it waits for
  std::size_t bytes = 0;          // that it gives them
  std::uint64_t given = 0;        // its value
  std::uint64_t received[kWarp];  // those of all lanes, after the wait
};

std::vector<std::unique_ptr<Thread>>& threads =
    *new std::vector<std::unique_ptr<Thread>>;  // never freed
Thread* running = nullptr;
const std::function<void()>* body = nullptr;

void giveWay(State state) {
  running->state = state;
  running->scheduler = std::move(running->scheduler).resume();
}

void resume(Thread& t) {
  running = &t;
  threadIdx = t.index;
  t.own = std::move(t.own).resume();
  running = nullptr;
}

std::unique_ptr<Thread> makeThread(unsigned number) {
  auto t = std::make_unique<Thread>();
  t->number = number;
  Thread* self = t.get();
  t->own = boost::context::fiber(
      std::allocator_arg, boost::context::fixedsize_stack(kStackBytes + number % 64 * kStackShift),
      [self](boost::context::fiber&& scheduler) {
        self->scheduler = std::move(scheduler);
        for (;;) {
          (*body)();
          giveWay(State::kEnded);
        }
        return std::move(self->scheduler);
      });
  return t;
}

// The threads of a block that exchange values with each other: which of them are where, as masks.
struct Warp {
  unsigned all = 0, ready = 0, atBlock = 0, atWarp = 0, ended = 0;
  std::size_t first = 0;  // thread of lane 0
};

Thread& threadOf(const Warp& w, unsigned lane) { return *threads[w.first + lane]; }

// Lets the warp's threads run, in some order, until each waits or has ended.
void runWarp(Warp& w) {
  const unsigned start = static_cast<unsigned>(anyOf(kWarp));
  const unsigned step = 1 + 2 * static_cast<unsigned>(anyOf(kWarp / 2));  // odd: meets every lane
  const unsigned ready = std::exchange(w.ready, 0u);
  for (unsigned k = 0; k < kWarp; ++k) {
    const unsigned lane = (start + k * step) % kWarp;
    const unsigned bit = 1u << lane;
    if ((ready & bit) == 0) continue;
    Thread& t = threadOf(w, lane);
    resume(t);
    (t.state == State::kAtWarp    ? w.atWarp
     : t.state == State::kAtBlock ? w.atBlock
                                  : w.ended) |= bit;
  }
}

// Whether all lanes that the thread waits for wait for it, in the same way. A lane that can never
// come is a fault.
bool isComplete(const Warp& w, const Thread& t) {
  if ((t.mask & ~w.all) != 0) fault("a warp's mask names a lane that the block does not have");
  if ((t.mask & w.ended) != 0) fault("a warp waits for a lane that has ended");
  if ((t.mask & ~w.atWarp) != 0) return false;
  for (unsigned lane = 0; lane < kWarp; ++lane) {
    if ((t.mask >> lane & 1u) == 0) continue;
    const Thread& other = threadOf(w, lane);
    if (other.mask != t.mask || other.bytes != t.bytes) return false;
  }
  return true;
}

// Lets those lanes go on whose wait for each other is over.
void releaseLanes(Warp& w) {
  for (unsigned lane = 0; lane < kWarp; ++lane) {
    if ((w.atWarp >> lane & 1u) == 0) continue;
    const Thread& t = threadOf(w, lane);
    if (!isComplete(w, t)) continue;
    const unsigned mask = t.mask;
    std::uint64_t values[kWarp];
    for (unsigned l = 0; l < kWarp; ++l) {
      values[l] = mask >> l & 1u ? threadOf(w, l).given : ~std::uint64_t{0};
    }
    for (unsigned l = 0; l < kWarp; ++l) {
      if (mask >> l & 1u) std::copy(values, values + kWarp, threadOf(w, l).received);
    }
    w.atWarp &= ~mask;
    w.ready |= mask;
  }
}

bool samePlace(const Thread& a, const Thread& b) {
  return a.where.line() == b.where.line() && a.where.column() == b.where.column() &&
         std::strcmp(a.where.file_name(), b.where.file_name()) == 0;
}

std::string placeOf(const Thread& t) {
  return std::string(" ") + t.where.file_name() + ":" + std::to_string(t.where.line());
}

// Lets all threads go on that wait for the block. False when all have ended.
bool releaseBlock(std::vector<Warp>& warps) {
  bool someEnded = false;
  const Thread* waiting = nullptr;
  for (const Warp& w : warps) {
    if (w.atWarp != 0) fault("threads wait for each other in different ways");
    someEnded = someEnded || w.ended != 0;
    for (unsigned lane = 0; lane < kWarp; ++lane) {
      if ((w.atBlock >> lane & 1u) == 0) continue;
      const Thread& t = threadOf(w, lane);
      if (waiting == nullptr) waiting = &t;
      if (!samePlace(*waiting, t)) {
        fault("a block waits in two places," + placeOf(*waiting) + " and" + placeOf(t));
      }
    }
  }
  const bool someWait = waiting != nullptr;
  if (someEnded && someWait)
    fault("a block waits for a thread that has ended," + placeOf(*waiting));
  for (Warp& w : warps) w.ready = std::exchange(w.atBlock, 0u);
  return someWait;
}

void runBlock(std::size_t count) {
  std::vector<Warp> warps((count + kWarp - 1) / kWarp);
  for (std::size_t k = 0; k < warps.size(); ++k) {
    const std::size_t lanes = std::min<std::size_t>(count - k * kWarp, kWarp);
    warps[k].first = k * kWarp;
    warps[k].all = lanes < kWarp ? (1u << lanes) - 1 : ~0u;
    warps[k].ready = warps[k].all;
  }
  std::vector<std::size_t> able;  // warps with a thread that can run
  do {
    able.resize(warps.size());
    std::iota(able.begin(), able.end(), std::size_t{0});
    while (!able.empty()) {
      std::size_t& chosen = able[anyOf(able.size())];
      // A warp gets ahead of the others for a while.
      while (warps[chosen].ready != 0) {
        runWarp(warps[chosen]);
        releaseLanes(warps[chosen]);
        if (anyOf(4) == 0) break;
      }
      if (warps[chosen].ready != 0) continue;
      chosen = able.back();
      able.pop_back();
    }
  } while (releaseBlock(warps));
}

}  // namespace

void runGrid(const Index& grid, const Index& block, std::size_t sharedBytes,
             const std::function<void()>& thread) {
  const std::size_t count = std::size_t{block.x} * block.y * block.z;
  while (threads.size() < count) {
    threads.push_back(makeThread(static_cast<unsigned>(threads.size())));
  }
  for (unsigned k = 0; k < count; ++k) {
    threads[k]->index = {k % block.x, k / block.x % block.y, k / block.x / block.y};
  }
  body = &thread;
  SharedMemory shared(sharedBytes);
  // Blocks k, k + step, k + 2 step, ...: every block once when step and their number have no
  // divisor in common.
  const std::size_t blocks = std::size_t{grid.x} * grid.y * grid.z;
  std::size_t step = 1 + anyOf(blocks);
  while (std::gcd(step, blocks) != 1) ++step;
  std::size_t k = anyOf(blocks);
  for (std::size_t done = 0; done < blocks; ++done, k = (k + step) % blocks) {
    shared.renew();
    ::gridDim = grid;
    ::blockDim = block;
    ::blockIdx = {static_cast<unsigned>(k % grid.x), static_cast<unsigned>(k / grid.x % grid.y),
                  static_cast<unsigned>(k / grid.x / grid.y)};
    runBlock(count);
    shared.check();
  }
  body = nullptr;
}

void waitForBlock(const std::source_location& here) {
  running->where = here;
  giveWay(State::kAtBlock);
}

const void* exchangeInWarp(unsigned mask, const void* value, std::size_t bytes) {
  if (!(mask >> lane() & 1u)) fault("a lane waits with a mask that it is not in");
  running->mask = mask;
  running->bytes = bytes;
  running->given = 0;
  if (bytes > 0) std::memcpy(&running->given, value, bytes);
  giveWay(State::kAtWarp);
  return running->received;
}

unsigned lane() { return running->number % kWarp; }

void fault(const std::string& what) {
  std::fprintf(stderr, "emulated GPU: %s", what.c_str());
  if (body != nullptr) {
    std::fprintf(stderr, " (block %u %u %u of %u %u %u", ::blockIdx.x, ::blockIdx.y, ::blockIdx.z,
                 ::gridDim.x, ::gridDim.y, ::gridDim.z);
    if (running != nullptr) std::fprintf(stderr, ", thread %u", running->number);
    std::fprintf(stderr, ")");
  }
  std::fprintf(stderr, "\n");
  std::abort();
}

std::size_t anyOf(std::size_t count) {
  static std::uint64_t state = [] {
    const char* seed = std::getenv("RATSEG_EMULATED_SEED");
    return seed != nullptr ? std::strtoull(seed, nullptr, 10) : 1;
  }();
  // SplitMix64 (Steele, Lea, Flood 2014).
  std::uint64_t z = state += 0x9e3779b97f4a7c15u;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
  return static_cast<std::size_t>((z ^ (z >> 31)) % count);
}

}  // namespace emulated_gpu
