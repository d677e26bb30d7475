#ifndef RATSEG_UTIL_SUM_H
#define RATSEG_UTIL_SUM_H

#include <cstddef>

#include "util/cudaarray.h"

namespace namespace_ratseg {

// Adds up device arrays on the device, by passes of a kernel that adds blocks of up to 512 elements
// and writes one partial sum per block; T is float or double. The order of the additions depends on
// the number of elements alone, so equal input gives equal sums.
//
// Holds scratch arrays on the device that is current at their allocation: use one summator per
// device. They are kept between calls and only grow.
template <class T>
class cuda_summator {
 public:
  cudaarray<T> temp1, temp2;  // partial sums; passes write to them in turn
  cudaarray<T> tempSum;       // one element: the result of the scalar forms
  std::size_t n_saved = 0;    // elements that the scratch arrays are made for, 0 = none
  int sm;                     // compute capability times 10, of the device current at construction
  bool debug = false;         // print the passes to standard output
  bool check = false;         // cuda_check after each launch and scratch allocation

  cuda_summator();
  virtual ~cuda_summator();

  // *sum = sum of a[0 .. n-1], both in device memory; 0 when n is 0. When there is no memory for
  // the scratch arrays, nothing is written and the error stays pending.
  void sumup(T* sum, const T* a, std::size_t n);

  // The same over h rows of w elements that start pitch bytes apart. The bytes between a row's last
  // element and the next row are deliberately overwritten with zeros, behind the last row too.
  // Rows that don't fit into the pitch: one line on standard error, and nothing is done.
  void sumup(T* sum, T* a, int w, int h, std::size_t pitch);

  // As above, with the sum copied to the host; 0 when there is no memory for tempSum.
  T sumup(const T* a, std::size_t n);
  T sumup(T* a, int w, int h, std::size_t pitch);

  void allocTempArrays(std::size_t n);
  void freeTempArrays();
  void allocTempSum();
  void freeTempSum();
  void free();

 private:
  void launch(T* dst, const T* src, std::size_t n, std::size_t blocks);
  void printPass(const T* a, const T* sum, const T* src, const T* dst, std::size_t n,
                 std::size_t blocks) const;
  bool prepareTempSum();
  T readTempSum() const;
};

}  // namespace namespace_ratseg

#endif
