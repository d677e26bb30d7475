// The calls of the emulated runtime.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "cuda_runtime.h"
#include "errors.h"
#include "memory.h"
#include "queues.h"
#include "threads.h"

namespace emulated_gpu {

namespace {

constexpr std::size_t kShared = 48 << 10;
constexpr std::size_t kSharedOptin = 227 << 10;
constexpr unsigned kMostThreads = 1024;
constexpr unsigned kMostRowsOfGrid = 65535;

int setting(const char* name, int unset) {
  const char* text = std::getenv(name);
  return text != nullptr && *text != '\0' ? std::atoi(text) : unset;
}

// The GPUs that the program may see: as many as CUDA_VISIBLE_DEVICES lists before the first that
// there is not.
int visibleGpus() {
  const int count = setting("RATSEG_EMULATED_GPUS", 0);
  const char* list = std::getenv("CUDA_VISIBLE_DEVICES");
  if (list == nullptr) return count;
  std::istringstream numbers(list);
  int visible = 0;
  for (int d = 0; visible < count && numbers >> d && d >= 0 && d < count; numbers.ignore())
    ++visible;
  return visible;
}

struct Device {
  explicit Device(int number) : own(number) {}
  Stream own;  // the legacy default stream; other streams are not ordered with it
  std::vector<bool> reaches;
  std::map<const void*, std::size_t> mostDynamicShared;
};

// What the program has a handle of. A handle that has ended is never given out again, so that its
// later use is noticed.
template <class T>
class Handles {
 public:
  T* add(std::unique_ptr<T> made) {
    all_.push_back(std::move(made));
    alive_.insert(all_.back().get());
    return all_.back().get();
  }
  bool has(T* handle) const { return alive_.contains(handle); }
  bool end(T* handle) { return alive_.erase(handle) != 0; }
  const std::set<T*>& alive() const { return alive_; }

 private:
  std::vector<std::unique_ptr<T>> all_;
  std::set<T*> alive_;
};

class Machine {
 public:
  Machine()
      : count_(visibleGpus()),
        peer_(setting("RATSEG_EMULATED_PEER", 1) != 0),
        memory(count_, static_cast<std::size_t>(setting("RATSEG_EMULATED_MEMORY", 1024)) << 20),
        queues(
            count_, [this](int d) { memory.open(devices[static_cast<std::size_t>(d)].reaches); },
            [this] { memory.close(); }) {
    for (int d = 0; d < count_; ++d) {
      devices.emplace_back(d);
      devices.back().reaches.assign(static_cast<std::size_t>(count_), false);
      devices.back().reaches[static_cast<std::size_t>(d)] = true;
    }
  }

  cudaError_t result(cudaError_t error) {
    if (error != cudaSuccess) pending = error;
    return error;
  }

  bool isDevice(int d) const { return d >= 0 && d < count_; }
  bool peer() const { return peer_; }
  int count() const { return count_; }
  Device& now() { return devices[static_cast<std::size_t>(current)]; }
  // Null when there is no such stream.
  Stream* stream(cudaStream_t s) {
    if (s == nullptr) return count_ > 0 ? &now().own : nullptr;
    return streams.has(s) ? s : nullptr;
  }

  // A call that must not come while this thread captures a stream.
  bool breaksCapture() {
    if (capture == nullptr) return false;
    capture->broken = true;
    return true;
  }

 private:
  int count_;
  bool peer_;

 public:
  Memory memory;
  Queues queues;
  std::vector<Device> devices;
  Handles<Stream> streams;
  Handles<Event> events;
  Handles<Graph> graphs;
  Handles<GraphExec> graphExecs;
  int current = 0;
  Graph* capture = nullptr;
  cudaError_t pending = cudaSuccess;
};

Machine& machine() {
  static Machine& m = *new Machine;  // never freed
  return m;
}

cudaError_t result(cudaError_t error) { return machine().result(error); }

// Runs work on the current device's own queue and waits for it.
cudaError_t runNow(std::function<void()> run) {
  Machine& m = machine();
  const WorkPtr work = m.queues.append(m.now().own, std::move(run));
  m.queues.finish(work);
  return cudaSuccess;
}

}  // namespace

cudaError_t launch(const void* kernel, const cudaLaunchConfig_t& config,
                   std::function<void()> thread) {
  Machine& m = machine();
  if (m.count() == 0) return result(cudaErrorNoDevice);
  const dim3& grid = config.gridDim;
  const dim3& block = config.blockDim;
  const std::size_t threads = std::size_t{block.x} * block.y * block.z;
  if (threads == 0 || block.x > kMostThreads || block.y > kMostThreads || block.z > 64 ||
      threads > kMostThreads) {
    return result(cudaErrorInvalidConfiguration);
  }
  if (grid.x == 0 || grid.x > 0x7fffffffu || grid.y == 0 || grid.y > kMostRowsOfGrid ||
      grid.z == 0 || grid.z > kMostRowsOfGrid) {
    return result(cudaErrorInvalidConfiguration);
  }
  const auto most = m.now().mostDynamicShared.find(kernel);
  if (config.dynamicSmemBytes >
      (most != m.now().mostDynamicShared.end() ? most->second : kShared)) {
    return result(cudaErrorInvalidValue);
  }
  Stream* stream = m.stream(config.stream);
  if (stream == nullptr || stream->device != m.current) {
    return result(cudaErrorInvalidResourceHandle);
  }
  const Index g = {grid.x, grid.y, grid.z};
  const Index b = {block.x, block.y, block.z};
  m.queues.append(*stream, [g, b, shared = config.dynamicSmemBytes, thread = std::move(thread)] {
    runGrid(g, b, shared, thread);
  });
  return cudaSuccess;
}

cudaError_t setMostDynamicShared(const void* kernel, int bytes) {
  if (machine().count() == 0) return result(cudaErrorNoDevice);
  if (bytes < 0 || static_cast<std::size_t>(bytes) > kSharedOptin) {
    return result(cudaErrorInvalidValue);
  }
  machine().now().mostDynamicShared[kernel] = static_cast<std::size_t>(bytes);
  return cudaSuccess;
}

// Neither sizes nor numbers look like an address that something lies at.
void refuseHostAddresses(const void* argument, std::size_t bytes) {
  static const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  constexpr std::uintptr_t kLowest = std::uintptr_t{1} << 32;
  constexpr std::uintptr_t kHighest = std::uintptr_t{1} << 47;
  const auto* from = static_cast<const char*>(argument);
  for (std::size_t k = 0; k + sizeof(std::uintptr_t) <= bytes; k += sizeof(std::uintptr_t)) {
    std::uintptr_t word = 0;
    std::memcpy(&word, from + k, sizeof word);
    auto* p = reinterpret_cast<char*>(word);
    if (word < kLowest || word >= kHighest || machine().memory.isDeviceAddress(p)) continue;
    unsigned char isResident = 0;
    const bool exists = mincore(p - word % page, 1, &isResident) == 0;
    if (exists) fault("a kernel is given the address of host memory");
  }
}

void leavePending(int error) { result(static_cast<cudaError_t>(error)); }

}  // namespace emulated_gpu

using namespace emulated_gpu;

cudaError_t cudaGetDeviceCount(int* count) {
  *count = machine().count();
  return result(*count > 0 ? cudaSuccess : cudaErrorNoDevice);
}

cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device) {
  Machine& m = machine();
  if (!m.isDevice(device)) return result(cudaErrorInvalidDevice);
  *prop = {};
  std::snprintf(prop->name, sizeof prop->name, "Emulated GPU");
  const int capability = setting("RATSEG_EMULATED_CAPABILITY", 90);
  prop->major = capability / 10;
  prop->minor = capability % 10;
  prop->multiProcessorCount = setting("RATSEG_EMULATED_PROCESSORS", 4);
  prop->l2CacheSize = 50 << 20;
  prop->maxThreadsPerBlock = static_cast<int>(kMostThreads);
  prop->sharedMemPerBlock = kShared;
  prop->sharedMemPerBlockOptin = kSharedOptin;
  return cudaSuccess;
}

cudaError_t cudaDeviceGetAttribute(int* value, cudaDeviceAttr, int device) {
  if (!machine().isDevice(device)) return result(cudaErrorInvalidDevice);
  *value = 1000000;
  return cudaSuccess;
}

cudaError_t cudaSetDevice(int device) {
  if (!machine().isDevice(device)) return result(cudaErrorInvalidDevice);
  machine().current = device;
  return cudaSuccess;
}

cudaError_t cudaGetDevice(int* device) {
  *device = machine().current;
  return cudaSuccess;
}

// ---- Memory

cudaError_t cudaMalloc(void** ptr, std::size_t bytes) {
  Machine& m = machine();
  if (m.count() == 0) return result(cudaErrorNoDevice);
  if (m.breaksCapture()) return result(cudaErrorStreamCaptureUnsupported);
  *ptr = nullptr;
  if (bytes == 0) return cudaSuccess;
  *ptr = m.memory.allocate(m.current, bytes);
  return result(*ptr != nullptr ? cudaSuccess : cudaErrorMemoryAllocation);
}

cudaError_t cudaFree(void* ptr) {
  Machine& m = machine();
  if (m.breaksCapture()) return result(cudaErrorStreamCaptureUnsupported);
  if (ptr == nullptr) return cudaSuccess;
  const int device = m.memory.deviceOf(ptr);
  if (device < 0) return result(cudaErrorInvalidValue);
  m.queues.finishDevice(device);
  return result(m.memory.free(ptr) ? cudaSuccess : cudaErrorInvalidValue);
}

cudaError_t cudaMemset(void* ptr, int value, std::size_t bytes) {
  return cudaMemset2D(ptr, bytes, value, bytes, 1);
}

cudaError_t cudaMemset2D(void* ptr, std::size_t pitch, int value, std::size_t width,
                         std::size_t height) {
  Machine& m = machine();
  if (m.breaksCapture()) return result(cudaErrorStreamCaptureUnsupported);
  if (width == 0 || height == 0) return cudaSuccess;
  if (width > pitch || !m.memory.contains(ptr, pitch * (height - 1) + width)) {
    return result(cudaErrorInvalidValue);
  }
  m.queues.append(m.now().own, [=] {
    for (std::size_t y = 0; y < height; ++y) {
      std::memset(static_cast<char*>(ptr) + y * pitch, value, width);
    }
  });
  return cudaSuccess;
}

cudaError_t cudaMemGetInfo(std::size_t* freeBytes, std::size_t* totalBytes) {
  Machine& m = machine();
  if (m.count() == 0) return result(cudaErrorNoDevice);
  *freeBytes = m.memory.freeBytes(m.current);
  *totalBytes = m.memory.totalBytes();
  return cudaSuccess;
}

cudaError_t cudaMemcpy(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind) {
  Machine& m = machine();
  if (m.breaksCapture()) return result(cudaErrorStreamCaptureUnsupported);
  if (kind < cudaMemcpyHostToHost || kind > cudaMemcpyDeviceToDevice) {
    return result(cudaErrorInvalidMemcpyDirection);
  }
  if (bytes == 0) return cudaSuccess;
  const bool toDevice = kind == cudaMemcpyHostToDevice || kind == cudaMemcpyDeviceToDevice;
  const bool fromDevice = kind == cudaMemcpyDeviceToHost || kind == cudaMemcpyDeviceToDevice;
  if (toDevice ? !m.memory.contains(dst, bytes) : m.memory.deviceOf(dst) >= 0) {
    return result(cudaErrorInvalidValue);
  }
  if (fromDevice ? !m.memory.contains(src, bytes) : m.memory.deviceOf(src) >= 0) {
    return result(cudaErrorInvalidValue);
  }
  // The host does not wait for copies within a device.
  const auto copy = [=] { std::memmove(dst, src, bytes); };
  if (!toDevice || !fromDevice) return runNow(copy);
  m.queues.append(m.now().own, copy);
  return cudaSuccess;
}

// After all work of both devices, and before all that comes later.
cudaError_t cudaMemcpyPeer(void* dst, int dstDevice, const void* src, int srcDevice,
                           std::size_t bytes) {
  Machine& m = machine();
  if (m.breaksCapture()) return result(cudaErrorStreamCaptureUnsupported);
  if (!m.isDevice(dstDevice) || !m.isDevice(srcDevice)) return result(cudaErrorInvalidDevice);
  if (bytes == 0) return cudaSuccess;
  if (!m.memory.contains(dst, bytes) || m.memory.deviceOf(dst) != dstDevice ||
      !m.memory.contains(src, bytes) || m.memory.deviceOf(src) != srcDevice) {
    return result(cudaErrorInvalidValue);
  }
  m.queues.finishDevice(dstDevice);
  m.queues.finishDevice(srcDevice);
  std::vector<bool> both(static_cast<std::size_t>(m.count()), false);
  both[static_cast<std::size_t>(dstDevice)] = both[static_cast<std::size_t>(srcDevice)] = true;
  m.memory.open(both);
  std::memmove(dst, src, bytes);
  m.memory.close();
  return cudaSuccess;
}

cudaError_t cudaDeviceCanAccessPeer(int* can, int device, int peer) {
  Machine& m = machine();
  if (!m.isDevice(device) || !m.isDevice(peer)) return result(cudaErrorInvalidDevice);
  *can = m.peer() && device != peer;
  return cudaSuccess;
}

cudaError_t cudaDeviceEnablePeerAccess(int peer, unsigned flags) {
  Machine& m = machine();
  if (flags != 0) return result(cudaErrorInvalidValue);
  if (!m.isDevice(peer) || peer == m.current) return result(cudaErrorInvalidDevice);
  if (!m.peer()) return result(cudaErrorPeerAccessUnsupported);
  auto reaches = m.now().reaches.begin() + peer;
  if (*reaches) return result(cudaErrorPeerAccessAlreadyEnabled);
  *reaches = true;
  return cudaSuccess;
}

cudaError_t cudaDeviceSynchronize() {
  Machine& m = machine();
  if (m.count() == 0) return result(cudaErrorNoDevice);
  if (m.breaksCapture()) return result(cudaErrorStreamCaptureUnsupported);
  m.queues.finishDevice(m.current);
  return cudaSuccess;
}

// ---- Events and streams

cudaError_t cudaEventCreate(cudaEvent_t* event) {
  Machine& m = machine();
  if (m.count() == 0) return result(cudaErrorNoDevice);
  *event = m.events.add(std::make_unique<Event>(m.current));
  return cudaSuccess;
}

cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream) {
  Machine& m = machine();
  Stream* s = m.stream(stream);
  if (!m.events.has(event) || s == nullptr || s->device != event->device) {
    return result(cudaErrorInvalidResourceHandle);
  }
  event->graph = s->graph;
  event->nodesBefore = s->nodesBefore;
  event->wasCaptured = false;
  event->mark = m.queues.append(*s, nullptr);
  return cudaSuccess;
}

cudaError_t cudaEventSynchronize(cudaEvent_t event) {
  Machine& m = machine();
  if (!m.events.has(event)) return result(cudaErrorInvalidResourceHandle);
  if (event->graph != nullptr || event->wasCaptured) return result(cudaErrorCapturedEvent);
  if (m.breaksCapture()) return result(cudaErrorStreamCaptureUnsupported);
  if (event->mark != nullptr) m.queues.finish(event->mark);
  return cudaSuccess;
}

cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t stop) {
  Machine& m = machine();
  if (!m.events.has(start) || !m.events.has(stop) || start->device != stop->device ||
      start->mark == nullptr || stop->mark == nullptr) {
    return result(cudaErrorInvalidResourceHandle);
  }
  if (!start->mark->done || !stop->mark->done) return result(cudaErrorNotReady);
  *ms = std::chrono::duration<float, std::milli>(stop->mark->when - start->mark->when).count();
  return cudaSuccess;
}

cudaError_t cudaEventDestroy(cudaEvent_t event) {
  if (!machine().events.end(event)) return result(cudaErrorInvalidResourceHandle);
  event->mark = nullptr;
  return cudaSuccess;
}

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* stream, unsigned flags) {
  Machine& m = machine();
  if (m.count() == 0) return result(cudaErrorNoDevice);
  if (flags != cudaStreamNonBlocking) fault("only non-blocking streams are emulated");
  *stream = m.streams.add(std::make_unique<Stream>(m.current));
  return cudaSuccess;
}

// Does not wait: what the stream holds still runs, as on a GPU.
cudaError_t cudaStreamDestroy(cudaStream_t stream) {
  Machine& m = machine();
  if (!m.streams.end(stream)) return result(cudaErrorInvalidResourceHandle);
  if (stream->graph != nullptr) fault("a stream is destroyed while it is captured");
  stream->before.clear();
  return cudaSuccess;
}

cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned) {
  Machine& m = machine();
  Stream* to = m.stream(stream);
  if (!m.events.has(event) || to == nullptr) return result(cudaErrorInvalidResourceHandle);
  if (event->wasCaptured) return result(cudaErrorCapturedEvent);
  Stream& s = *to;
  if (event->graph != nullptr) {  // the stream joins the capture
    if (stream == nullptr || (s.graph != nullptr && s.graph != event->graph)) {
      event->graph->broken = true;
      return result(cudaErrorStreamCaptureIsolation);
    }
    s.graph = event->graph;
    s.nodesBefore.insert(s.nodesBefore.end(), event->nodesBefore.begin(), event->nodesBefore.end());
    return cudaSuccess;
  }
  if (s.graph != nullptr) {
    if (event->mark == nullptr) return cudaSuccess;
    s.graph->broken = true;
    return result(cudaErrorStreamCaptureIsolation);
  }
  if (event->mark != nullptr) s.before.push_back(event->mark);
  return cudaSuccess;
}

// ---- Graphs

cudaError_t cudaStreamBeginCapture(cudaStream_t stream, cudaStreamCaptureMode) {
  Machine& m = machine();
  if (stream == nullptr) return result(cudaErrorStreamCaptureUnsupported);
  if (!m.streams.has(stream)) return result(cudaErrorInvalidResourceHandle);
  if (m.capture != nullptr) fault("only one capture at a time is emulated");
  stream->graph = m.capture = new Graph;
  stream->captureStartsHere = true;
  stream->nodesBefore.clear();
  return cudaSuccess;
}

// Whether every captured stream's last node comes before those of the stream that the capture
// started on.
static bool allJoined(const Machine& m, const Graph& graph, const Stream& origin) {
  std::vector<bool> before(graph.nodes.size(), false);
  for (const std::size_t k : origin.nodesBefore) before[k] = true;
  for (std::size_t k = graph.nodes.size(); k-- > 0;) {
    if (!before[k]) continue;
    for (const std::size_t j : graph.nodes[k].before) before[j] = true;
  }
  for (const Stream* s : m.streams.alive()) {
    if (s->graph != &graph) continue;
    for (const std::size_t k : s->nodesBefore) {
      if (!before[k]) return false;
    }
  }
  return true;
}

cudaError_t cudaStreamEndCapture(cudaStream_t stream, cudaGraph_t* graph) {
  Machine& m = machine();
  *graph = nullptr;
  if (!m.streams.has(stream) || !stream->captureStartsHere) return result(cudaErrorInvalidValue);
  std::unique_ptr<Graph> captured(std::exchange(m.capture, nullptr));
  const bool joined = allJoined(m, *captured, *stream);
  for (Stream* s : m.streams.alive()) {
    if (s->graph != captured.get()) continue;
    s->graph = nullptr;
    s->captureStartsHere = false;
    s->nodesBefore.clear();
  }
  for (Event* e : m.events.alive()) {
    if (e->graph != captured.get()) continue;
    e->graph = nullptr;
    e->wasCaptured = true;
  }
  if (captured->broken) return result(cudaErrorStreamCaptureInvalidated);
  if (!joined) return result(cudaErrorStreamCaptureUnjoined);
  *graph = m.graphs.add(std::move(captured));
  return cudaSuccess;
}

cudaError_t cudaGraphInstantiate(cudaGraphExec_t* exec, cudaGraph_t graph, unsigned long long) {
  Machine& m = machine();
  *exec = nullptr;
  if (!m.graphs.has(graph)) return result(cudaErrorInvalidValue);
  *exec = m.graphExecs.add(std::make_unique<GraphExec>(GraphExec{graph->nodes}));
  return cudaSuccess;
}

cudaError_t cudaGraphLaunch(cudaGraphExec_t exec, cudaStream_t stream) {
  Machine& m = machine();
  Stream* s = m.stream(stream);
  if (!m.graphExecs.has(exec)) return result(cudaErrorInvalidValue);
  if (s == nullptr) return result(cudaErrorInvalidResourceHandle);
  if (s->graph != nullptr) fault("graphs within graphs are not emulated");
  m.queues.appendGraph(*s, *exec);
  return cudaSuccess;
}

cudaError_t cudaGraphDestroy(cudaGraph_t graph) {
  if (!machine().graphs.end(graph)) return result(cudaErrorInvalidValue);
  graph->nodes.clear();
  return cudaSuccess;
}

cudaError_t cudaGraphExecDestroy(cudaGraphExec_t exec) {
  if (!machine().graphExecs.end(exec)) return result(cudaErrorInvalidValue);
  exec->nodes.clear();
  return cudaSuccess;
}

// ---- Errors

cudaError_t cudaGetLastError() { return std::exchange(machine().pending, cudaSuccess); }
cudaError_t cudaPeekAtLastError() { return machine().pending; }

const char* cudaGetErrorString(cudaError_t error) {
  switch (error) {
    case cudaSuccess:
      return "no error";
    case cudaErrorInvalidValue:
      return "invalid argument";
    case cudaErrorMemoryAllocation:
      return "out of memory";
    case cudaErrorInvalidConfiguration:
      return "invalid configuration argument";
    case cudaErrorInvalidDevicePointer:
      return "invalid device pointer";
    case cudaErrorInvalidMemcpyDirection:
      return "invalid copy direction for memcpy";
    case cudaErrorInvalidDeviceFunction:
      return "invalid device function";
    case cudaErrorInsufficientDriver:
      return "CUDA driver version is insufficient for CUDA runtime version";
    case cudaErrorInvalidDevice:
      return "invalid device ordinal";
    case cudaErrorNoDevice:
      return "no CUDA-capable device is detected";
    case cudaErrorInvalidResourceHandle:
      return "invalid resource handle";
    case cudaErrorPeerAccessAlreadyEnabled:
      return "peer access is already enabled";
    case cudaErrorPeerAccessUnsupported:
      return "peer access is not supported between these two devices";
    case cudaErrorNotReady:
      return "device not ready";
    case cudaErrorStreamCaptureUnsupported:
      return "operation not permitted when stream is capturing";
    case cudaErrorStreamCaptureInvalidated:
      return "operation failed due to a previous error during capture";
    case cudaErrorStreamCaptureUnjoined:
      return "capturing stream has unjoined work";
    case cudaErrorStreamCaptureIsolation:
      return "dependency created on uncaptured work in another stream";
    case cudaErrorCapturedEvent:
      return "operation not permitted on an event last recorded in a capturing stream";
  }
  return "unrecognized error code";
}
