// Devices, bands and memory of the solver.

#include "algorithms/rat_segments/alg/rat_seg_impl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "device/runtime.h"
#include "support/forwarding_backend.h"
#include "support/machine.h"
#include "support/solver_problem.h"
#include "util/cudadefs.h"

namespace namespace_ratseg {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

Params smallParams(std::size_t w, std::size_t h, std::size_t n, std::vector<int> gpu = {}) {
  Params par;
  par.w = w;
  par.h = h;
  par.n = n;
  par.gpu = std::move(gpu);
  return par;
}

struct AllocOutput {
  bool ok = false;
  std::string out, err;
};

AllocOutput allocAndCapture(RatSegImpl& solver) {
  AllocOutput result;
  CaptureStdout();
  CaptureStderr();
  result.ok = solver.alloc();
  result.out = GetCapturedStdout();
  result.err = GetCapturedStderr();
  return result;
}

void expectShape(const dim3& shape, unsigned x, unsigned y, unsigned z) {
  EXPECT_EQ(shape.x, x);
  EXPECT_EQ(shape.y, y);
  EXPECT_EQ(shape.z, z);
}

TEST(RatSegImplStart, HoldsNothingBeforeAlloc) {
  Params par;
  RatSegImpl solver(par);
  EXPECT_EQ(&solver.par, &par);
  EXPECT_EQ(solver.arrays, nullptr);
  EXPECT_FALSE(solver.allocatedArrays);
  EXPECT_EQ(solver.nDev, 1);
  EXPECT_EQ(solver.dev, nullptr);
  EXPECT_EQ(solver.kind_weight, int{RatSegImpl::kind_weight_none});
  EXPECT_EQ(int{RatSegImpl::kind_weight_none}, 0);
  EXPECT_EQ(solver.scaleOmega, 0.0f);
  expectShape(solver.block_copy, 0, 0, 0);
  expectShape(solver.grid_copy, 0, 0, 0);
  EXPECT_EQ(solver.ind_bgr, 0u);
}

std::uintptr_t addressOf(const void* field) { return reinterpret_cast<std::uintptr_t>(field); }

TEST(RatSegImplStart, FieldsAreInOrder) {
  Params par;
  const RatSegImpl s(par);
  const std::vector<std::uintptr_t> places = {
      addressOf(&s.arrays),     addressOf(&s.allocatedArrays), addressOf(&s.nDev),
      addressOf(&s.dev),        addressOf(&s.kind_weight),     addressOf(&s.scaleOmega),
      addressOf(&s.constGamma), addressOf(&s.constAlpha),      addressOf(&s.canAccess_array),
      addressOf(&s.block_copy), addressOf(&s.grid_copy),       addressOf(&s.ind_bgr),
      addressOf(&s.sum_u_host)};
  EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
}

// The arrays of a record in its order.
template <class Body>
void forEachArray(gpudata& g, Body&& body) {
  const auto all = [&body](auto&... array) { (body(array), ...); };
  all(g.u, g.u_bar, g.p, g.a, g.a_bar, g.gamma, g.sum_u, g.alpha, g.beta, g.ratios, g.sigmas,
      g.mins, g.maxs, g.rho, g.weight, g.scribbles, g.image);
}

TEST(GpuData, FieldsAreInOrder) {
  const HostMachine machine;
  gpudata g;
  std::vector<std::uintptr_t> places;
  forEachArray(g, [&](auto& array) { places.push_back(addressOf(&array)); });
  for (const void* field :
       {static_cast<const void*>(&g.ymin), static_cast<const void*>(&g.ymax),
        static_cast<const void*>(&g.h), static_cast<const void*>(&g.NOmega),
        static_cast<const void*>(&g.NOmegaOffset), static_cast<const void*>(&g.N),
        static_cast<const void*>(&g.NOffset), static_cast<const void*>(&g.block),
        static_cast<const void*>(&g.grid), static_cast<const void*>(&g.weightHat),
        static_cast<const void*>(&g.summator)}) {
    places.push_back(addressOf(field));
  }
  EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
}

TEST(GpuData, DestructorFreesTheArraysInReverseOrder) {
  class Frees final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t free(void* ptr) override {
      freed.push_back(ptr);
      return ForwardingBackend::free(ptr);
    }
    std::vector<void*> freed;
  };
  HostMachine machine;
  auto g = std::make_unique<gpudata>();
  std::vector<void*> expected;
  forEachArray(*g, [&](auto& array) {
    array.alloc(3);
    expected.insert(expected.begin(), array.get_ptr());
  });
  Frees frees(machine.backend);
  const BackendScope scope(frees);
  g.reset();
  EXPECT_EQ(frees.freed, expected);
}

TEST(RatSegImplAlloc, OneDeviceHoldsTheWholeImage) {
  const HostMachine machine;
  Params par = smallParams(300, 7, 5);
  RatSegImpl solver(par);
  const AllocOutput result = allocAndCapture(solver);
  ASSERT_TRUE(result.ok);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, "Using: 0\nGPU memory needed: 1 MB\n");
  EXPECT_TRUE(solver.allocatedArrays);
  EXPECT_EQ(solver.nDev, 1);

  const gpudata& g = solver.arrays[0];
  EXPECT_EQ(g.ymin, 0u);
  EXPECT_EQ(g.ymax, 7u);
  EXPECT_EQ(g.h, 7u);
  EXPECT_EQ(g.NOmega, 2100u);
  EXPECT_EQ(g.NOmegaOffset, 2400u);
  EXPECT_EQ(g.N, 10500u);
  EXPECT_EQ(g.NOffset, 12000u);
  expectShape(g.block, 128, 2, 1);
  expectShape(g.grid, 3, 4, 1);
  expectShape(solver.block_copy, 128, 1, 1);
  expectShape(solver.grid_copy, 3, 5, 1);
  solver.free();
}

TEST(RatSegImplAlloc, EveryArrayHasItsLengthAndIsZero) {
  const HostMachine machine(hostConfig(2));
  Params par = smallParams(5, 7, 3, {1, 0});
  par.initLocalSolution = false;
  RatSegImpl solver(par);
  ASSERT_TRUE(solver.alloc());
  for (int d = 0; d < 2; ++d) {
    SCOPED_TRACE(d);
    const gpudata& g = solver.arrays[d];
    const std::size_t rows = d == 0 ? 4 : 3;
    EXPECT_EQ(g.h, rows);
    for (const auto* array : {&g.u, &g.u_bar}) {
      EXPECT_EQ(array->numElem(), (rows + 1) * 5 * 3);
      EXPECT_EQ(array->getDev(), solver.dev[d]);
      EXPECT_EQ(toHost(*array), std::vector<float>((rows + 1) * 5 * 3));
    }
    EXPECT_EQ(g.p.numElem(), (rows + 1) * 5 * 3);
    EXPECT_EQ(g.p.getDev(), solver.dev[d]);
    for (const auto* array : {&g.a, &g.a_bar, &g.gamma, &g.sum_u, &g.alpha, &g.beta, &g.ratios,
                              &g.sigmas, &g.mins, &g.maxs}) {
      EXPECT_EQ(toHost(*array), std::vector<float>(3));
    }
    EXPECT_EQ(toHost(g.rho), std::vector<float>(rows * 5 * 3));
    EXPECT_EQ(toHost(g.weight), std::vector<float>(rows * 5));
    EXPECT_EQ(g.scribbles.numElem(), 5u * 7u);
    EXPECT_EQ(g.image.numElem(), rows * 5);
  }
  solver.free();
}

TEST(RatSegImplAlloc, EndsWithTheStartOfTheIteration) {
  const HostMachine machine;
  Params par = smallParams(5, 7, 3);
  RatSegImpl solver(par);
  ASSERT_TRUE(solver.alloc());
  const std::vector<float> u = toHost(solver.arrays[0].u);
  for (std::size_t k = 0; k < 35; ++k) ASSERT_EQ(u[k], 1.0f) << "of equal costs the first label";
  for (std::size_t k = 35; k < u.size(); ++k) ASSERT_EQ(u[k], 0.0f);
  solver.free();
}

TEST(RatSegImplAlloc, ConstantsFollowFromTheImageSize) {
  const HostMachine machine;
  Params par = smallParams(30, 20, 4);
  RatSegImpl solver(par);
  ASSERT_TRUE(solver.alloc());
  EXPECT_FLOAT_EQ(solver.scaleOmega, 128.0f / std::sqrt(600.0f));
  EXPECT_EQ(solver.constGamma, 600.0f);
  EXPECT_EQ(solver.constAlpha, 1.0f);
  EXPECT_NE(solver.sum_u_host, nullptr);
  solver.free();
}

TEST(RatSegImplAlloc, BandsAreSortedDisjointAndCoverEveryRow) {
  const HostMachine machine(hostConfig(5));
  for (const std::size_t h : {5u, 9u, 10u, 11u, 64u}) {
    for (int devices = 1; devices <= 5; ++devices) {
      SCOPED_TRACE(std::to_string(h) + " rows, " + std::to_string(devices) + " devices");
      Params par = smallParams(3, h, 2);
      for (int d = 0; d < devices; ++d) par.gpu.push_back(d);
      RatSegImpl solver(par);
      const std::size_t chunk = (h + static_cast<std::size_t>(devices) - 1) / devices;
      const bool fits = (static_cast<std::size_t>(devices) - 1) * chunk < h;
      ASSERT_EQ(allocAndCapture(solver).ok, fits);
      if (!fits) continue;
      std::size_t next = 0;
      for (int d = 0; d < devices; ++d) {
        EXPECT_EQ(solver.arrays[d].ymin, next);
        EXPECT_GT(solver.arrays[d].ymax, solver.arrays[d].ymin);
        if (d + 1 < devices) {
          EXPECT_EQ(solver.arrays[d].h, chunk);
        }
        next = solver.arrays[d].ymax;
      }
      EXPECT_EQ(next, h);
      solver.free();
    }
  }
}

// 5 rows on 4 devices would give bands [0,2), [2,4), [4,6) and one that starts behind the image.
TEST(RatSegImplAlloc, RefusesBandsWithoutRows) {
  const HostMachine machine(hostConfig(4));
  Params par = smallParams(8, 5, 2, {0, 1, 2, 3});
  RatSegImpl solver(par);
  const AllocOutput result = allocAndCapture(solver);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(
      result.err,
      "ERROR: 5 image rows cannot be split over 4 devices in bands of 2 rows: only the first 3 "
      "would get any\n");
  EXPECT_FALSE(solver.allocatedArrays);

  par.gpu = {0, 1, 2};  // [0,2), [2,4), [4,5)
  EXPECT_TRUE(allocAndCapture(solver).ok);
  EXPECT_EQ(solver.arrays[2].h, 1u);
  solver.free();
}

TEST(RatSegImplAlloc, RefusesMoreBandsThanRows) {
  const HostMachine machine(hostConfig(3));
  Params par = smallParams(8, 2, 2, {0, 1, 2});
  RatSegImpl solver(par);
  const AllocOutput result = allocAndCapture(solver);
  EXPECT_FALSE(result.ok);
  EXPECT_THAT(result.err, HasSubstr("2 image rows cannot be split over 3 devices"));
}

TEST(RatSegImplAlloc, RefusesSizesOfZero) {
  const HostMachine machine;
  for (const auto& par0 : {smallParams(0, 5, 2), smallParams(5, 0, 2), smallParams(5, 5, 0)}) {
    Params par = par0;
    RatSegImpl solver(par);
    const AllocOutput result = allocAndCapture(solver);
    EXPECT_FALSE(result.ok);
    EXPECT_THAT(result.err, StartsWith("ERROR: w, h, n, threadsx and threadsy must be positive"));
  }
}

TEST(RatSegImplAlloc, ListedDevicesOverrideTheirNumber) {
  const HostMachine machine(hostConfig(4));
  Params par = smallParams(8, 16, 2, {3, 1});
  par.gpu_num = -4;
  RatSegImpl solver(par);
  const AllocOutput result = allocAndCapture(solver);
  ASSERT_TRUE(result.ok);
  EXPECT_THAT(result.out, StartsWith("Using: 3, 1\n"));
  EXPECT_EQ(solver.nDev, 2);
  EXPECT_EQ(solver.dev[0], 3);
  EXPECT_EQ(solver.dev[1], 1);
  solver.free();
}

TEST(RatSegImplAlloc, NumberOfDevicesIsTakenFromTheListBestFirst) {
  HostConfig config = hostConfig(4);
  config.properties.assign(4, defaultHostProperties());
  config.properties[2].major = 9;
  const HostMachine machine(config);
  const auto used = [](int gpu_num) {
    Params par = smallParams(8, 16, 2);
    par.gpu_num = gpu_num;
    RatSegImpl solver(par);
    EXPECT_TRUE(allocAndCapture(solver).ok);
    std::vector<int> devices(solver.dev, solver.dev + solver.nDev);
    solver.free();
    return devices;
  };
  EXPECT_EQ(used(-1), (std::vector<int>{2}));
  EXPECT_EQ(used(-3), (std::vector<int>{2, 0, 1}));
  EXPECT_EQ(used(-9), (std::vector<int>{2, 0, 1, 3}));
  EXPECT_EQ(used(INT_MIN), (std::vector<int>{2, 0, 1, 3}));
  EXPECT_EQ(used(0), (std::vector<int>{2, 0, 1, 3}));
}

TEST(RatSegImplAlloc, RefusesAPositiveNumberOfDevices) {
  const HostMachine machine;
  Params par = smallParams(8, 8, 2);
  par.gpu_num = 1;
  RatSegImpl solver(par);
  const AllocOutput result = allocAndCapture(solver);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.err, "ERROR: gpu_num must be 0 or negative, but is 1\n");
}

TEST(RatSegImplAlloc, FailsWithoutADevice) {
  const HostMachine machine(hostConfig(0));
  Params par = smallParams(8, 8, 2);
  RatSegImpl solver(par);
  const AllocOutput result = allocAndCapture(solver);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.err, "No CUDA Devices\n");
}

// 4*NOffset*4 + 4*N + 4*NOmega + 40 n bytes, rounded up per device; scribbles and image left out.
TEST(RatSegImplAlloc, MemoryReportNamesEachDeviceWhenThereAreSeveral) {
  const HostMachine machine(hostConfig(2, true, 64));
  Params par = smallParams(256, 256, 3, {0, 1});
  RatSegImpl solver(par);
  const AllocOutput result = allocAndCapture(solver);
  ASSERT_TRUE(result.ok);
  // per band: 16*129*256*3 + 120 + 4*128*256*3 + 4*128*256 = 2109560 bytes -> 3 MiB
  EXPECT_EQ(result.out,
            "Using: 0, 1\n"
            "GPU memory needed: 6 MB\n"
            "  device 0: 3 MB,  available: 64 MB,  total: 64 MB\n"
            "  device 1: 3 MB,  available: 64 MB,  total: 64 MB\n");
  solver.free();
}

TEST(RatSegImplAlloc, MemoryReportHasTheFiguresOfEachBandAndItsDevice) {
  const HostMachine machine(hostConfig(2, true, 64));
  cudaSetDevice(1);
  void* taken = nullptr;
  ASSERT_EQ(cudaMalloc(&taken, (5 << 20) + 1), cudaSuccess);
  Params par = smallParams(256, 255, 3, {1, 0});
  RatSegImpl solver(par);
  const AllocOutput result = allocAndCapture(solver);
  ASSERT_TRUE(result.ok);
  // bands of 128 and 127 rows: 2109560 and 2093176 bytes, a little more and less than 2 MiB
  EXPECT_EQ(result.out,
            "Using: 1, 0\n"
            "GPU memory needed: 5 MB\n"
            "  device 1: 3 MB,  available: 58 MB,  total: 64 MB\n"
            "  device 0: 2 MB,  available: 64 MB,  total: 64 MB\n");
  solver.free();
}

TEST(RatSegImplAlloc, MemoryIsPrintedInMixedUnits) {
  // The machine has no room for these: only the report is looked at.
  const HostMachine machine(hostConfig(1, true, 1));
  const auto report = [](std::size_t w, std::size_t h, std::size_t n) {
    Params par = smallParams(w, h, n);
    RatSegImpl solver(par);
    return allocAndCapture(solver).out;
  };
  // 16 (h+1) w n + 40 n + 4 w h n + 4 w h bytes
  EXPECT_THAT(report(1, 1, 1), HasSubstr("GPU memory needed: 1 MB\n"));
  // w = n = 1: 24 h + 56 bytes, here 8 bytes less than 1 GiB
  EXPECT_THAT(report(1, 44739240, 1), HasSubstr("GPU memory needed: 1 GB 0 MB\n"));
  EXPECT_THAT(report(1, 44739241, 1), HasSubstr("GPU memory needed: 1 GB 1 MB\n"));
  EXPECT_THAT(report(1, 44739240 + 20 * 1024 * 1024, 1),
              HasSubstr("GPU memory needed: 1 GB 480 MB\n"));
  // w = h = 1: 76 n + 4 bytes, here exactly 1 MiB
  EXPECT_THAT(report(1, 1, 13797), HasSubstr("GPU memory needed: 1 MB\n"));
  EXPECT_THAT(report(1, 1, 13798), HasSubstr("GPU memory needed: 2 MB\n"));
  EXPECT_THAT(report(1024, 1024 * 1024, 64), HasSubstr("GPU memory needed: 1 TB 260 GB 2 MB\n"));
  EXPECT_THAT(report(1024 * 1024, 1024 * 1024, 256 * 1024),
              HasSubstr("GPU memory needed: 5 EB 0 PB 8 TB 0 GB 10 MB\n"));
}

TEST(RatSegImplAlloc, OutOfMemoryIsReportedAndWhatWasAllocatedStays) {
  HostMachine machine(hostConfig(1, true, 1));
  // 264192 bytes for u and for u_bar, twice that for p, which no longer fits
  Params par = smallParams(256, 128, 2);
  RatSegImpl solver(par);
  const AllocOutput result = allocAndCapture(solver);
  EXPECT_FALSE(result.ok);
  EXPECT_THAT(result.err, MatchesRegex("ERROR: Insufficient GPU memory \\(src/algorithms/"
                                       "rat_segments/alg/rat_seg_impl, line [0-9]+\\)\n"));
  EXPECT_FALSE(solver.allocatedArrays);
  ASSERT_NE(solver.arrays, nullptr);
  EXPECT_TRUE(solver.arrays[0].u.isAllocated());
  EXPECT_FALSE(solver.arrays[0].image.isAllocated());
  std::size_t available = 0;
  std::size_t total = 0;
  cudaMemGetInfo(&available, &total);
  EXPECT_LT(available, total);

  solver.free();  // does nothing
  std::size_t after = 0;
  cudaMemGetInfo(&after, &total);
  EXPECT_EQ(after, available);
  EXPECT_EQ(cudaPeekAtLastError(), cudaSuccess);
}

// On machines whose memory ends within each of the arrays in turn.
TEST(RatSegImplAlloc, ArraysAreAllocatedInOrderWithACheckOfTheirOwn) {
  // 5 x 4 pixels, 3 labels
  const std::vector<std::size_t> bytes = {300, 300, 600, 12, 12,  12, 12,  12, 12,
                                          12,  12,  12,  12, 240, 80, 320, 320};
  std::set<std::string> callSites;
  std::size_t before = 0;
  for (std::size_t k = 0; k < bytes.size(); ++k) {
    SCOPED_TRACE(k);
    HostConfig config = hostConfig(1);
    config.memoryBytes = before + bytes[k] - 1;
    const HostMachine machine(config);
    Params par = smallParams(5, 4, 3);
    RatSegImpl solver(par);
    const AllocOutput result = allocAndCapture(solver);
    EXPECT_FALSE(result.ok);
    EXPECT_THAT(result.err, StartsWith("ERROR: Insufficient GPU memory ("));
    callSites.insert(result.err);
    std::size_t array = 0;
    forEachArray(solver.arrays[0], [&](auto& a) {
      EXPECT_EQ(a.isAllocated(), array < k) << "array " << array;
      EXPECT_EQ(a.numBytes(), array < k ? bytes[array] : 0u) << "array " << array;
      ++array;
    });
    before += bytes[k];
  }
  EXPECT_EQ(callSites.size(), bytes.size());
}

TEST(RatSegImplFree, GivesBackAllDeviceMemoryAndMayBeCalledAgain) {
  const HostMachine machine(hostConfig(2));
  Params par = smallParams(20, 20, 3, {0, 1});
  RatSegImpl solver(par);
  solver.free();
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(allocAndCapture(solver).ok);
    solver.free();
    EXPECT_FALSE(solver.allocatedArrays);
    for (int device = 0; device < 2; ++device) {
      std::size_t available = 0;
      std::size_t total = 0;
      cudaSetDevice(device);
      cudaMemGetInfo(&available, &total);
      EXPECT_EQ(available, total) << "device " << device;
    }
  }
  solver.free();
}

// Arrays free themselves on their own device and go back; the solver stays on the last band's.
TEST(RatSegImplFree, SelectsTheDevicesInBandOrder) {
  const HostMachine machine(hostConfig(3));
  Params par = smallParams(8, 9, 2, {2, 0, 1});
  RatSegImpl solver(par);
  ASSERT_TRUE(allocAndCapture(solver).ok);
  cudaSetDevice(0);
  solver.free();
  int device = -1;
  cudaGetDevice(&device);
  EXPECT_EQ(device, 1);
}

// One check of selecting the device, one behind each of the 17 arrays and one of the event.
TEST(RatSegImplFree, IsCheckedArrayByArray) {
  const HostMachine machine;
  Params par = smallParams(20, 20, 3);
  RatSegImpl solver(par);
  ASSERT_TRUE(allocAndCapture(solver).ok);
  const int before = lastcalls_pos;
  solver.free();
  EXPECT_EQ((lastcalls_pos - before + kLastCalls) % kLastCalls, 19);
}

TEST(RatSegImplFree, TheWeightOfAnEarlierAllocationIsForgotten) {
  const HostMachine machine;
  Params par = smallParams(20, 20, 3);
  RatSegImpl solver(par);
  ASSERT_TRUE(allocAndCapture(solver).ok);
  std::vector<float> weight(400, 0.5f);
  solver.setWeight(weight.data());
  solver.free();
  ASSERT_TRUE(allocAndCapture(solver).ok);
  EXPECT_EQ(solver.kind_weight, int{RatSegImpl::kind_weight_none});
  solver.free();
}

TEST(RatSegImplFree, TheDestructorDoesNotFree) {
  const HostMachine machine;
  std::size_t available = 0;
  std::size_t total = 0;
  {
    Params par = smallParams(20, 20, 3);
    RatSegImpl solver(par);
    ASSERT_TRUE(allocAndCapture(solver).ok);
  }
  cudaMemGetInfo(&available, &total);
  EXPECT_LT(available, total);
}

TEST(RatSegImplPeers, TheTableSaysWhoReachesWhom) {
  for (const bool peer : {true, false}) {
    const HostMachine machine(hostConfig(2, peer));
    Params par = smallParams(8, 8, 2, {0, 1});
    RatSegImpl solver(par);
    ASSERT_TRUE(allocAndCapture(solver).ok);
    EXPECT_TRUE(solver.canAccess(0, 0));
    EXPECT_EQ(solver.canAccess(0, 1), peer);
    EXPECT_EQ(solver.canAccess(1, 0), peer);
    // canAccess(a, b) reads entry b * nDev + a.
    solver.canAccess_array[1 * 2 + 0] = true;
    solver.canAccess_array[0 * 2 + 1] = false;
    EXPECT_TRUE(solver.canAccess(0, 1));
    EXPECT_FALSE(solver.canAccess(1, 0));
    solver.free();
  }
}

TEST(RatSegImplSynchronize, WaitsForEveryDeviceInBandOrder) {
  HostMachine machine(hostConfig(3));
  Params par = smallParams(8, 9, 2, {2, 0, 1});
  RatSegImpl solver(par);
  ASSERT_TRUE(allocAndCapture(solver).ok);
  std::vector<int> waited;
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    if (call.name == "cudaDeviceSynchronize") waited.push_back(call.device);
  });
  solver.deviceSynchronizeAll();
  EXPECT_EQ(waited, (std::vector<int>{2, 0, 1}));
  solver.free();
}

// 128 x 2 threads need more than 48 KiB of scratch from 49 labels on.
TEST(RatSegImplPrimU, LaunchesASmallerBlockWhereScratchIsShort) {
  const HostMachine machine;
  const auto shape = [](std::size_t n) {
    Params par = smallParams(300, 7, n);
    RatSegImpl solver(par);
    EXPECT_TRUE(allocAndCapture(solver).ok);
    const LaunchShape launch = solver.arrays[0].primU;
    solver.free();
    return launch;
  };
  const LaunchShape usual = shape(48);
  expectShape(usual.block, 128, 2, 1);
  expectShape(usual.grid, 3, 4, 1);
  EXPECT_EQ(usual.sharedBytes, 128u * 2 * 4 * 48);

  const LaunchShape flat = shape(49);
  expectShape(flat.block, 128, 1, 1);
  expectShape(flat.grid, 3, 7, 1);
  EXPECT_EQ(flat.sharedBytes, 128u * 4 * 49);

  const LaunchShape narrow = shape(1024);
  expectShape(narrow.block, 8, 1, 1);
  expectShape(narrow.grid, 38, 7, 1);
  EXPECT_EQ(narrow.sharedBytes, 8u * 4 * 1024);
}

TEST(RatSegImplPrimU, UsesAllTheSharedMemoryThatTheDeviceAllows) {
  HostConfig config = hostConfig(1);
  config.properties = {defaultHostProperties()};
  config.properties[0].sharedMemPerBlockOptin = 227 << 10;
  const HostMachine machine(config);
  Params par = smallParams(300, 7, 200);
  RatSegImpl solver(par);
  ASSERT_TRUE(allocAndCapture(solver).ok);
  EXPECT_EQ(solver.arrays[0].primU.block.x, 128u);
  EXPECT_EQ(solver.arrays[0].primU.block.y, 2u);
  solver.free();
}

// A grid has at most 65535 blocks above each other.
TEST(RatSegImplAlloc, TallBandsGetHigherBlocks) {
  const HostMachine machine;
  const auto shapes = [](std::size_t w, std::size_t h, std::size_t n, int threadsx) {
    Params par = smallParams(w, h, n);
    par.threadsx = threadsx;
    RatSegImpl solver(par);
    EXPECT_TRUE(allocAndCapture(solver).ok);
    const gpudata& g = solver.arrays[0];
    const std::array<dim3, 4> s = {g.block, g.grid, g.primU.block, g.primU.grid};
    solver.free();
    return s;
  };
  const std::array<dim3, 4> usual = shapes(3, 131070, 2, 4);
  expectShape(usual[0], 4, 2, 1);
  expectShape(usual[1], 1, 65535, 1);

  const std::array<dim3, 4> tall = shapes(3, 131071, 2, 4);
  expectShape(tall[0], 2, 4, 1);
  expectShape(tall[1], 2, 32768, 1);
  expectShape(tall[2], 2, 4, 1);
  expectShape(tall[3], 2, 32768, 1);

  const std::array<dim3, 4> taller = shapes(3, 4 * 65535 + 1, 1, 5);
  expectShape(taller[0], 1, 8, 1);
  expectShape(taller[1], 3, 32768, 1);

  const std::array<dim3, 4> manyLabels = shapes(1, 65536, 49, 128);
  expectShape(manyLabels[0], 128, 2, 1);
  expectShape(manyLabels[2], 64, 2, 1);
  expectShape(manyLabels[3], 1, 32768, 1);
}

TEST(RatSegImplErrors, MoreLabelsThanABlockHasThreadsEndTheProcessInRun) {
  const HostMachine machine;
  SolverProblem p = randomProblem(2, 2, 1025);
  RatSegImpl solver(p.par);
  setUp(solver, p);
  EXPECT_EXIT(
      {
        dup2(2, 1);
        solver.run();
      },
      testing::ExitedWithCode(1),
      "\nsrc/algorithms/rat_segments/alg/rat_seg_impl, line 1[0-9][0-9][0-9]: invalid "
      "configuration argument \\(9\\)\n");
  solver.free();
}

TEST(RatSegImplErrors, AnUnknownDeviceEndsTheProcess) {
  const HostMachine machine;
  Params par = smallParams(8, 8, 2, {7});
  RatSegImpl solver(par);
  EXPECT_EXIT(
      {
        dup2(2, 1);
        solver.alloc();
      },
      testing::ExitedWithCode(1),
      "\nsrc/algorithms/rat_segments/alg/rat_seg_impl, line [0-9]+: invalid device ordinal "
      "\\(10\\)\n");
}

}  // namespace
}  // namespace namespace_ratseg
