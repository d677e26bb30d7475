#include "threads.h"

#include <algorithm>
#include <array>
#include <boost/context/fiber.hpp>
#include <boost/context/fixedsize_stack.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include "cuda_runtime.h"

// Dynamic shared memory, as the launchers name it (cuda_launch.h).
namespace namespace_ratseg {
thread_local double dynamic_shared[(227 << 10) / sizeof(double)];
}

namespace emulated_gpu {

namespace {

constexpr std::size_t kStackBytes = 64 << 10;
constexpr unsigned kWarp = 32;

enum class State { kReady, kAtBlock, kAtWarp, kEnded };

// A thread of the block that runs, on a stack that later blocks use again.
struct Thread {
  boost::context::fiber own, scheduler;
  State state = State::kEnded;
  Index index;
  unsigned number = 0;
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
  t->own = boost::context::fiber(std::allocator_arg, boost::context::fixedsize_stack(kStackBytes),
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

template <class T>
void shuffle(std::vector<T>& items) {
  for (std::size_t k = items.size(); k > 1; --k) std::swap(items[k - 1], items[anyOf(k)]);
}

// Whether all lanes of the thread's mask wait for each other in the same way. A lane that can never
// come is a fault.
bool warpIsComplete(const Thread& t, std::size_t count) {
  const std::size_t first = t.number / kWarp * kWarp;
  for (unsigned l = 0; l < kWarp; ++l) {
    if (!(t.mask >> l & 1u)) continue;
    if (first + l >= count) fault("a warp's mask names a lane that the block does not have");
    const Thread& other = *threads[first + l];
    if (other.state == State::kEnded) fault("a warp waits for a lane that has ended");
    if (other.state != State::kAtWarp) return false;
    if (other.mask != t.mask || other.bytes != t.bytes) return false;
  }
  return true;
}

void releaseWarp(Thread& t) {
  const std::size_t first = t.number / kWarp * kWarp;
  std::uint64_t values[kWarp];
  for (unsigned l = 0; l < kWarp; ++l) {
    values[l] = t.mask >> l & 1u ? threads[first + l]->given : ~std::uint64_t{0};
  }
  const unsigned mask = t.mask;
  for (unsigned l = 0; l < kWarp; ++l) {
    if (!(mask >> l & 1u)) continue;
    std::copy(values, values + kWarp, threads[first + l]->received);
    threads[first + l]->state = State::kReady;
  }
}

// Lets waiting threads go on whose wait is over. False when none can.
bool release(std::size_t count) {
  bool any = false;
  std::size_t atBlock = 0, ended = 0;
  for (std::size_t k = 0; k < count; ++k) {
    Thread& t = *threads[k];
    atBlock += t.state == State::kAtBlock;
    ended += t.state == State::kEnded;
    if (t.state != State::kAtWarp || !warpIsComplete(t, count)) continue;
    releaseWarp(t);
    any = true;
  }
  if (any || atBlock == 0) return any;
  if (ended > 0) fault("a block waits for a thread that has ended");
  if (atBlock < count) return false;
  for (std::size_t k = 0; k < count; ++k) threads[k]->state = State::kReady;
  return true;
}

void runBlock(std::size_t count, std::vector<unsigned>& order) {
  for (std::size_t k = 0; k < count; ++k) threads[k]->state = State::kReady;
  std::size_t ended = 0;
  while (ended < count) {
    shuffle(order);
    for (const unsigned k : order) {
      if (threads[k]->state != State::kReady) continue;
      resume(*threads[k]);
      ended += threads[k]->state == State::kEnded;
    }
    if (ended < count && !release(count)) fault("threads wait for each other at different places");
  }
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
  std::vector<unsigned> order(count);
  std::iota(order.begin(), order.end(), 0u);
  body = &thread;
  ::gridDim = grid;
  ::blockDim = block;
  // Blocks k, k + step, k + 2 step, ...: every block once when step and their number have no
  // divisor in common.
  const std::size_t blocks = std::size_t{grid.x} * grid.y * grid.z;
  std::size_t step = 1 + anyOf(blocks);
  while (std::gcd(step, blocks) != 1) ++step;
  std::size_t k = anyOf(blocks);
  for (std::size_t done = 0; done < blocks; ++done, k = (k + step) % blocks) {
    ::blockIdx = {static_cast<unsigned>(k % grid.x), static_cast<unsigned>(k / grid.x % grid.y),
                  static_cast<unsigned>(k / grid.x / grid.y)};
    std::memset(namespace_ratseg::dynamic_shared, 0xff, sharedBytes);
    runBlock(count, order);
  }
}

void waitForBlock() { giveWay(State::kAtBlock); }

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

void fault(const char* what) {
  std::fprintf(stderr, "emulated GPU: %s (block %u %u %u of %u %u %u", what, ::blockIdx.x,
               ::blockIdx.y, ::blockIdx.z, ::gridDim.x, ::gridDim.y, ::gridDim.z);
  if (running != nullptr) std::fprintf(stderr, ", thread %u", running->number);
  std::fprintf(stderr, ")\n");
  std::abort();
}

std::size_t anyOf(std::size_t count) {
  static std::mt19937_64 numbers = [] {
    const char* seed = std::getenv("RATSEG_EMULATED_SEED");
    return std::mt19937_64(seed != nullptr ? std::strtoull(seed, nullptr, 10) : 1);
  }();
  return static_cast<std::size_t>(numbers() % count);
}

}  // namespace emulated_gpu
