// The CUDA launchers of the strip engine.

#include <cuda_runtime.h>

#include "algorithms/rat_segments/alg/strips_gpu/strip_kernels.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_shares_kernels.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_tile_kernels.h"
#include "device/ceil_div.h"
#include "device/cuda/cuda_launch.h"
#include "device/cuda/warp.h"

namespace namespace_ratseg {

namespace {

constexpr unsigned kFlatThreads = 256;
constexpr unsigned kStripThreads = kMaxStripThreads;
static_assert(kStripLanes == kWarp);
constexpr unsigned kTileThreads = 256;

unsigned flatGrid(std::size_t count) { return static_cast<unsigned>(ceilDiv(count, kFlatThreads)); }

// Gets the values that a thread of a strip needs of the columns beside its own from other lanes.
template <int PX>
struct LanesBeside {
  bool hasLeft, hasRight;  // is there a column in the image

  __device__ float right(const tile::StripLabel&, unsigned, const float (&bar)[PX]) const {
    const float next = __shfl_down_sync(kAllLanes, bar[0], 1);
    return hasRight ? next : bar[PX - 1];
  }
  __device__ float left(const tile::StripLabel&, unsigned, const float (&)[PX],
                        const float2 (&q)[PX]) const {
    const float before = __shfl_up_sync(kAllLanes, q[PX - 1].x, 1);
    return hasLeft ? before : 0.0f;
  }
};

// The shares' step, by the threads of one block.
__device__ void takeSharesStep(const StripShares& s) {
  for (std::size_t i = threadIdx.x; i < s.n; i += blockDim.x) tile::stripSharesDual(s, i);
  __syncthreads();
  for (std::size_t i = threadIdx.x; i < s.n; i += blockDim.x) tile::stripSharesPrimal(s, i);
}

// True if this block is the last of the grid to call this. Everything that the others wrote before
// is then visible to its threads. The counter is 0 again afterwards.
__device__ bool isLastBlock(unsigned* counter) {
  __shared__ bool last;
  __syncthreads();
  if (threadIdx.x == 0) {
    __threadfence();  // for what the whole block has written
    last = atomicInc(counter, gridDim.x - 1) == gridDim.x - 1;
    __threadfence();
  }
  __syncthreads();
  return last;
}

// Adds the blocks' sums up, a warp for some labels at a time, in an order that depends on their
// number alone. While this runs the rest of the GPU is idle, so that many loads are under way at
// once.
__device__ void addUp(const StripFinish& f) {
  constexpr unsigned kLabels = 4;
  constexpr unsigned kParts = 4;
  const WarpLanes warp;
  const unsigned lane = threadIdx.x % kWarp;
  const unsigned warps = blockDim.x / kWarp;
  for (unsigned first = threadIdx.x / kWarp; first < f.n; first += kLabels * warps) {
    double sum[kLabels] = {};
    for (unsigned k = lane; k < f.blocks; k += kParts * kWarp) {
      float part[kLabels][kParts];
#pragma unroll
      for (unsigned l = 0; l < kLabels; ++l) {
#pragma unroll
        for (unsigned j = 0; j < kParts; ++j) {
          const unsigned i = first + l * warps;
          const unsigned block = k + j * kWarp;
          const bool inside = i < f.n && block < f.blocks;
          part[l][j] = inside ? __ldcg(f.partials + (std::size_t{i} * f.blocks + block)) : 0.0f;
        }
      }
#pragma unroll
      for (unsigned l = 0; l < kLabels; ++l) {
#pragma unroll
        for (unsigned j = 0; j < kParts; ++j) sum[l] += static_cast<double>(part[l][j]);
      }
    }
    double own = 0.0;
#pragma unroll
    for (unsigned l = 0; l < kLabels; ++l) {
      const double total = warp.sum(sum[l]);
      if (lane == l) own = total;
    }
    const unsigned i = first + lane * warps;
    if (lane < kLabels && i < f.n) tile::stripFinishLabel(f, i, own);
  }
}

namespace kernel {

__global__ void ratseg_strip_enter(float* u_bar, const float* u, float theta_bar,
                                   std::size_t count) {
  const std::size_t k = std::size_t{blockIdx.x} * blockDim.x + threadIdx.x;
  if (k < count) tile::ratseg_strip_enter(u_bar, u, theta_bar, k);
}

__global__ void ratseg_strip_leave(float* u, float* u_bar, const float* fresh, const float* old,
                                   float theta_bar, std::size_t count) {
  const std::size_t k = std::size_t{blockIdx.x} * blockDim.x + threadIdx.x;
  if (k < count) tile::ratseg_strip_leave(u, u_bar, fresh, old, theta_bar, k);
}

__global__ void ratseg_strip_edge(const StripBand b) {
  const unsigned x = blockIdx.x * blockDim.x + threadIdx.x;
  if (x < b.w) tile::ratseg_strip_edge(b, x, blockIdx.y);
}

// Block 0 takes the shares' step where there is one; the warps of the others have a strip each.
template <int LABELS, int PX>
__global__ void __launch_bounds__(kStripThreads, stripBlocksAtOnce(LABELS))
    ratseg_strip_sweep(const StripBand b, const StripShares shares, const StripFinish finish) {
  __shared__ float warps[kStripThreads / kWarp][LABELS];
  const unsigned first = shares.n != 0 ? 1 : 0;
  if (blockIdx.x < first) {
    takeSharesStep(shares);
  } else {
    const unsigned block = blockIdx.x - first;
    float sum[LABELS] = {};
    const unsigned warp = (block * blockDim.x + threadIdx.x) / kStripLanes;
    tile::StripPlace place;
    if (tile::stripOfThread<PX>(b, warp, threadIdx.x % kStripLanes, place)) {
      const LanesBeside<PX> beside{place.x > 0, place.x + PX < b.w};
      tile::ratseg_strip<LABELS, PX>(b, place, beside, sum);
    }
#pragma unroll
    for (int i = 0; i < LABELS; ++i) {
      const float total = warpSum(place.owns ? sum[i] : 0.0f);
      if (threadIdx.x % kWarp == 0) warps[threadIdx.x / kWarp][i] = total;
    }
    __syncthreads();
    if (threadIdx.x < b.n) {
      float total = 0.0f;
      for (unsigned k = 0; k < blockDim.x / kWarp; ++k) total += warps[k][threadIdx.x];
      b.partials[std::size_t{threadIdx.x} * b.blocks + b.firstBlock + block] = total;
    }
  }
  if (finish.n != 0 && isLastBlock(finish.counter)) addUp(finish);
}

// The same on tiles. Shared memory: the values of all labels of the block's pixels where there is
// room for them, then the sums of each warp.
__global__ void __launch_bounds__(kTileThreads, kTileBlocks)
    ratseg_strip_tiles(const StripBand b, const StripShares shares, const StripFinish finish,
                       unsigned tileRows, bool sharedScratch) {
  float* shared = dynamicShared<float>();
  const unsigned first = shares.n != 0 ? 1 : 0;
  if (blockIdx.x < first) {
    takeSharesStep(shares);
  } else {
    const unsigned block = blockIdx.x - first;
    const unsigned blocks = gridDim.x - first;
    const unsigned warps = blockDim.x / kWarp;
    const unsigned warp = threadIdx.x / kWarp;
    const unsigned lane = threadIdx.x % kWarp;
    const std::size_t plane = std::size_t{b.w} * (b.h + 1);
    float* sums = shared + (sharedScratch ? std::size_t{b.n} * blockDim.x : 0);
    for (unsigned k = threadIdx.x; k < warps * b.n; k += blockDim.x) sums[k] = 0.0f;
    __syncthreads();
    float* own = sums + std::size_t{warp} * b.n;
    const unsigned tiles = tile::stripTiles(b, tileRows);
    for (unsigned t = block; t < tiles; t += blocks) {
      unsigned x, y;
      const bool inside = tile::pixelOfThread(b, tileRows, t, threadIdx.x, x, y);
      float* v =
          sharedScratch ? shared + threadIdx.x : b.uNext + (inside ? std::size_t{y} * b.w + x : 0);
      const std::size_t stride = sharedScratch ? blockDim.x : plane;
      tile::ratseg_strip_pixel(b, x, y, inside, v, stride, [&](unsigned i, float s) {
        const float total = warpSum(s);
        if (lane == 0) own[i] += total;
      });
    }
    __syncthreads();
    for (unsigned i = threadIdx.x; i < b.n; i += blockDim.x) {
      float total = 0.0f;
      for (unsigned k = 0; k < warps; ++k) total += sums[std::size_t{k} * b.n + i];
      b.partials[std::size_t{i} * b.blocks + b.firstBlock + block] = total;
    }
  }
  if (finish.n != 0 && isLastBlock(finish.counter)) addUp(finish);
}

__global__ void ratseg_strip_finish(const StripFinish finish) { addUp(finish); }

}  // namespace kernel

// A recorded graph.
class CudaReplay final : public StripReplay {
 public:
  explicit CudaReplay(::cudaGraphExec_t graph) : graph_(graph) {}
  ~CudaReplay() override { ::cudaGraphExecDestroy(graph_); }
  CudaReplay(const CudaReplay&) = delete;
  CudaReplay& operator=(const CudaReplay&) = delete;
  void launch(cudaStream_t stream) override { ::cudaGraphLaunch(graph_, native(stream)); }

 private:
  ::cudaGraphExec_t graph_;
};

class CudaStripKernels final : public StripKernels {
 public:
  void ratseg_strip_enter(float* u_bar, const float* u, float theta_bar,
                          std::size_t count) override {
    launch(kernel::ratseg_strip_enter, CudaLaunch(flatGrid(count), kFlatThreads), u_bar, u,
           theta_bar, count);
  }

  void ratseg_strip_leave(float* u, float* u_bar, const float* fresh, const float* old,
                          float theta_bar, std::size_t count) override {
    launch(kernel::ratseg_strip_leave, CudaLaunch(flatGrid(count), kFlatThreads), u, u_bar, fresh,
           old, theta_bar, count);
  }

  void ratseg_strip_edge(const StripShape&, cudaStream_t stream, const StripBand& b) override {
    const ::dim3 grid(flatGrid(b.w), b.n);
    launch(kernel::ratseg_strip_edge, CudaLaunch(grid, kFlatThreads, 0, native(stream)), b);
  }

  void ratseg_strip_sweep(const StripShape& shape, cudaStream_t stream, const StripBand& b,
                          const StripShares* shares, const StripFinish* finish) override {
    const unsigned blocks =
        stripBlocks(shape, b.w, b.rowEnd - b.rowBegin) + (shares != nullptr ? 1 : 0);
    const StripShares s = shares != nullptr ? *shares : StripShares();
    const StripFinish f = finish != nullptr ? *finish : StripFinish();
    if (shape.labels == 0) {
      allowSharedMemory(kernel::ratseg_strip_tiles, shape.sharedBytes);
      launch(kernel::ratseg_strip_tiles,
             CudaLaunch(blocks, shape.threads, shape.sharedBytes, native(stream)), b, s, f,
             shape.tileRows, shape.sharedScratch);
      return;
    }
    tile::withStripShape(shape, [&](auto labels, auto pixels) {
      launch(kernel::ratseg_strip_sweep<labels(), pixels()>,
             CudaLaunch(blocks, shape.threads, 0, native(stream)), b, s, f);
    });
  }

  void ratseg_strip_finish(cudaStream_t stream, const StripFinish& finish) override {
    launch(kernel::ratseg_strip_finish, CudaLaunch(1, kTileThreads, 0, native(stream)), finish);
  }

  std::unique_ptr<StripReplay> record(cudaStream_t stream,
                                      const std::function<void()>& steps) override {
    ::cudaGraph_t graph = nullptr;
    ::cudaGraphExec_t instance = nullptr;
    if (::cudaStreamBeginCapture(native(stream), cudaStreamCaptureModeThreadLocal) ==
        ::cudaSuccess) {
      steps();
      if (::cudaStreamEndCapture(native(stream), &graph) == ::cudaSuccess) {
        ::cudaGraphInstantiate(&instance, graph, 0);
        ::cudaGraphDestroy(graph);
      }
    }
    if (instance != nullptr) return std::make_unique<CudaReplay>(instance);
    ::cudaGetLastError();  // the steps can be launched one by one
    return nullptr;
  }
};

}  // namespace

StripKernels& StripKernels::cuda() {
  static CudaStripKernels kernels;
  return kernels;
}

}  // namespace namespace_ratseg
