#ifndef RATSEG_TESTS_SUPPORT_DEVICE_VALUES_H
#define RATSEG_TESTS_SUPPORT_DEVICE_VALUES_H

// Device arrays that are made from values and read back as values.

#include <vector>

#include "util/cudaarray.h"

namespace namespace_ratseg {

template <class T>
class DeviceValues {
 public:
  DeviceValues(std::vector<T> values) : array_(values.size()) {
    array_.copyFromHost(values.data());
  }

  operator T*() const { return array_.get_ptr(); }

  std::vector<T> values() const {
    std::vector<T> host(array_.numElem());
    array_.copyToHost(host.data());
    return host;
  }

 private:
  cudaarray<T> array_;
};

using DeviceFloats = DeviceValues<float>;

}  // namespace namespace_ratseg

#endif
