#ifndef RATSEG_UTIL_CUDAARRAY_H
#define RATSEG_UTIL_CUDAARRAY_H

#include <cstddef>
#include <iostream>
#include <limits>
#include <vector>

#include "device/console.h"
#include "device/runtime.h"
#include "util/device_scope.h"

namespace namespace_ratseg {

namespace cudaarray_detail {
inline float add(float a, float b) { return a + b; }
inline double add(double a, double b) { return a + b; }
inline float2 add(const float2& a, const float2& b) { return {a.x + b.x, a.y + b.y}; }
inline float4 add(const float4& a, const float4& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z, a.w + b.w};
}
}  // namespace cudaarray_detail

// Owns one linear block of num elements on one device; T is float, float2, float4 or double.
//
// Every operation works on the array's own device, whichever is current, and leaves the current
// device as it was; only alloc takes the current device for the array's. Runtime errors are not
// reported here but stay pending: run cuda_check (cudadefs.h) after an operation, cuda_check_malloc
// after alloc.
template <class T>
class cudaarray {
 public:
  std::size_t num = 0;  // elements; 0 when not allocated
  T* ptr = nullptr;     // device pointer; null when not allocated
  int dev = 0;          // the device that ptr is on

  cudaarray() = default;
  explicit cudaarray(std::size_t n) { alloc(n); }

  // Takes over n elements at p, which must lie on the current device and be releasable with
  // cudaFree: like every other array, this one frees them in the end.
  cudaarray(T* p, std::size_t n) : num(p != nullptr ? n : 0), ptr(p) { cudaGetDevice(&dev); }

  // A copy has its own block, on the device of the original. It is empty, with the error pending,
  // when that device has no room.
  cudaarray(const cudaarray& other) { copyFrom(other); }
  cudaarray& operator=(const cudaarray& other) {
    if (this != &other) {
      free();
      copyFrom(other);
    }
    return *this;
  }

  virtual ~cudaarray() { free(); }

  std::size_t numElem() const { return num; }
  static std::size_t numBytesPerElem() { return sizeof(T); }
  std::size_t numBytes() const { return num * sizeof(T); }
  static std::size_t memFor(std::size_t n) { return n * sizeof(T); }
  int getDev() const { return dev; }
  bool isAllocated() const { return ptr != nullptr; }
  T* get_ptr() const { return ptr; }
  operator T*() const { return ptr; }  // NOLINT(google-explicit-constructor): kernels take T*

  // Makes this an array of n zeros on the current device and returns the number of elements now
  // held: n, or 0 when the allocation failed or any error was pending (it stays pending, and the
  // array is empty). The block held before is freed, except one of the same size on another device
  // than the current one: that one is deliberately left where it is.
  std::size_t alloc(std::size_t n);

  // Sets all elements to zero.
  void setzero();

  void free();

  // Copy num elements from or to host memory. On an empty array: one line on standard error.
  void copyFromHost(const T* host);
  void copyToHost(T* host) const;

  // Element i, copied to the host. No such element: one line on standard error, and zero.
  T get(std::size_t i) const;

  // Sum of all elements (of each component), added on the host in index order.
  T sum() const;

 private:
  void copyFrom(const cudaarray& other);
};

template <class T>
std::size_t cudaarray<T>::alloc(std::size_t n) {
  if (ptr != nullptr) {
    int current = 0;
    cudaGetDevice(&current);
    if (n != num || dev == current) free();
  }
  if (n == 0) return 0;

  num = n;
  ptr = nullptr;
  cudaGetDevice(&dev);
  // More elements than there are addresses become more bytes than any device has.
  const bool countable = n <= std::numeric_limits<std::size_t>::max() / sizeof(T);
  mallocZeroed(reinterpret_cast<void**>(&ptr),
               countable ? memFor(n) : std::numeric_limits<std::size_t>::max());
  if (cudaPeekAtLastError() != cudaSuccess) {
    if (ptr != nullptr) cudaFree(ptr);  // the error was an older one
    num = 0;
    ptr = nullptr;
    dev = 0;
    return 0;
  }
  return num;
}

template <class T>
void cudaarray<T>::setzero() {
  if (ptr == nullptr) return;
  const DeviceScope scope(dev);
  cudaMemset(ptr, 0, numBytes());
}

template <class T>
void cudaarray<T>::free() {
  if (ptr != nullptr) {
    const DeviceScope scope(dev);
    cudaFree(ptr);
  }
  num = 0;
  ptr = nullptr;
}

template <class T>
void cudaarray<T>::copyFromHost(const T* host) {
  if (ptr == nullptr) {
    console().error() << "ERROR: (cudaarray.copyFromHost(T*)): destination array not allocated"
                      << std::endl;
    return;
  }
  const DeviceScope scope(dev);
  cudaMemcpy(ptr, host, numBytes(), cudaMemcpyHostToDevice);
}

template <class T>
void cudaarray<T>::copyToHost(T* host) const {
  if (ptr == nullptr) {
    console().error() << "ERROR: (cudaarray.copyToHost(T*)): source array not allocated"
                      << std::endl;
    return;
  }
  const DeviceScope scope(dev);
  cudaMemcpy(host, ptr, numBytes(), cudaMemcpyDeviceToHost);
}

template <class T>
T cudaarray<T>::get(std::size_t i) const {
  T element{};
  if (ptr == nullptr || i >= num) {
    console().error() << "ERROR: (cudaarray.get(size_t)): no element " << i << " in an array of "
                      << num << std::endl;
    return element;
  }
  const DeviceScope scope(dev);
  cudaMemcpy(&element, ptr + i, sizeof(T), cudaMemcpyDeviceToHost);
  return element;
}

template <class T>
T cudaarray<T>::sum() const {
  T total{};
  if (ptr == nullptr) return total;
  std::vector<T> host(num);
  copyToHost(host.data());
  for (const T& element : host) total = cudaarray_detail::add(total, element);
  return total;
}

template <class T>
void cudaarray<T>::copyFrom(const cudaarray& other) {
  if (other.ptr == nullptr) return;
  const DeviceScope scope(other.dev);
  if (alloc(other.num) == 0) return;
  cudaMemcpy(ptr, other.ptr, numBytes(), cudaMemcpyDeviceToDevice);
}

}  // namespace namespace_ratseg

#endif
