#ifndef RATSEG_BENCH_PEERS_TOTAL_VARIATION_H
#define RATSEG_BENCH_PEERS_TOTAL_VARIATION_H

// What ratseg's iteration is compared with: the plainest loop that smooths pictures by their total
// variation, as imaging toolkits have it. It knows no simplex, no edge weight and no shares, so it
// has less to do.

#include <cstddef>
#include <vector>

namespace namespace_ratseg {

// Minimises  sum over pixels of lambda |grad u| + (u - f)^2 / 2  for each of n pictures f of w x h
// pixels on its own, by the primal-dual iteration of Chambolle and Pock (2011, algorithm 1 with
// theta = 1, tau = sigma = 1 / sqrt(8)). Differences are forward ones, 0 at the last column and
// row.
class TotalVariationLoop {
 public:
  // costs has n * w * h values, picture after picture, row by row.
  TotalVariationLoop(std::size_t w, std::size_t h, std::size_t n, const std::vector<float>& costs,
                     float lambda);

  // One iteration: of each picture in turn the dual step of all rows, then the primal one of all
  // rows. Rows are spread over the threads.
  void iterate();

  const std::vector<float>& u() const { return u_; }

 private:
  void dualRow(std::size_t y, const float* uBar, float* px, float* py) const;
  void primalRow(std::size_t y, const float* f, const float* px, const float* py, float* u,
                 float* uBar) const;

  std::size_t w_, h_, n_;
  float lambda_;
  std::vector<float> f_, u_, uBar_, px_, py_;
};

}  // namespace namespace_ratseg

#endif
