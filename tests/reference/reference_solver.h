#ifndef RATSEG_TESTS_REFERENCE_REFERENCE_SOLVER_H
#define RATSEG_TESTS_REFERENCE_REFERENCE_SOLVER_H

// The iteration of docs/math.md, section 6, in double precision: serial, plain, and written from
// the formulas, to check the program's solver against. It shares no code with it.

#include <cstddef>
#include <vector>

namespace namespace_ratseg {

// Image rows [ymin, ymax) that one device owns. Each row that crosses a band boundary comes either
// as the copy kernel or as the copy engine moves it (section 8.3).
struct ReferenceBand {
  std::size_t ymin = 0;
  std::size_t ymax = 0;
  bool copy_engine_p = false;  // this band receives p from the band above by the copy engine
  bool copy_engine_u = false;  // this band receives u_bar from the band below by the copy engine
};

// The problem and the parameters of its iteration. Per-pixel arrays are label-major planes of w h
// values, rows top to bottom; per-label arrays hold n values, those of label ind_bgr unused.
struct ReferenceProblem {
  std::size_t w = 0, h = 0, n = 0;
  std::vector<double> rho;     // n planes; >= FLT_MAX forbids a label, <= -FLT_MAX forces it
  std::vector<double> weight;  // one plane, or empty: 1 everywhere
  std::vector<double> ratios;
  std::vector<double> sigmas;
  std::vector<double> mins, maxs;  // empty: ratios -/+ 3 sigmas, clamped to [0, 1]
  std::size_t ind_bgr = 0;
  int kind_prior = 3;  // 1 interval, 2 lower bound, 3 upper bound, anything else none
  double lambda = 0;
  double mu = 0;
  double eps = 0;
  double dt_multiplier = 1;
  bool initLocalSolution = true;     // start from the pixelwise best label, else from zero
  bool accelerate = false;           // section 12; with the upper bound or without a prior
  std::vector<ReferenceBand> bands;  // empty: the whole image in one band
};

// The variables of one band: n planes of w (rows + 1) values. Row r of the band is row r of u and
// u_bar, whose row `rows` is the halo (the next band's first row), and row r + 1 of px and py,
// whose row 0 is the halo (the previous band's last row).
struct ReferenceBandState {
  std::size_t ymin = 0, rows = 0;
  std::vector<double> u, u_bar;
  std::vector<double> px, py;  // horizontal and vertical component of the dual field p
};

// A solver at some point of its iteration. The variables are public: tests read them, and may set
// them to try a single update.
class ReferenceSolver {
 public:
  // Puts every variable to its start (section 6.8). Throws std::invalid_argument, naming the
  // field, for array sizes that do not fit, bands that do not cover the rows one after the other,
  // and parameters for which the formulas have no meaning (negative lambda, weight or eps, a
  // dt_multiplier that is not positive, bounds that are not 0 <= mins <= maxs).
  explicit ReferenceSolver(ReferenceProblem problem);

  // Performs iterations more iterations.
  void run(std::size_t iterations);

  // The parts of one iteration, in its order.
  void dualLength();        // p, section 6.3
  void exchangeDual();      // halo rows of p, section 8.2
  void sumLabels();         // sum_u, section 6.4
  void dualCoupling();      // gamma, section 6.4
  void dualPrior();         // alpha and beta, section 6.5
  void primalShares();      // a and a_bar, section 6.6
  void exactShares();       // section 12: instead of the three before
  void primalLabeling();    // u and u_bar, section 6.7
  void exchangeLabeling();  // halo rows of u_bar, section 8.2

  // The differences of section 4 for column x and row `row` of band b, label i.
  double forwardX(const ReferenceBandState& b, std::size_t i, std::size_t x, std::size_t row) const;
  double forwardY(const ReferenceBandState& b, std::size_t i, std::size_t x, std::size_t row) const;
  double divergence(const ReferenceBandState& b, std::size_t i, std::size_t x,
                    std::size_t row) const;

  // A per-pixel variable of the whole image, without the halo rows: n planes of w h values.
  std::vector<double> u() const { return gather(&ReferenceBandState::u, 0); }
  std::vector<double> u_bar() const { return gather(&ReferenceBandState::u_bar, 0); }
  std::vector<double> px() const { return gather(&ReferenceBandState::px, 1); }
  std::vector<double> py() const { return gather(&ReferenceBandState::py, 1); }

  const ReferenceProblem& problem() const { return problem_; }

  std::vector<ReferenceBandState> bands;
  std::vector<double> a, a_bar, gamma, sum_u, alpha, beta;  // per label

 private:
  std::size_t at(const ReferenceBandState& b, std::size_t i, std::size_t x, std::size_t row) const {
    return (i * (b.rows + 1) + row) * problem_.w + x;
  }
  double pixels() const { return static_cast<double>(problem_.w * problem_.h); }
  double radius(std::size_t pixel) const;
  void setLocalSolution();
  void startFromLabeling();
  void primalPixel(ReferenceBandState& b, std::size_t x, std::size_t row);
  void dualPriorOf(std::size_t i);
  double steppedShare(std::size_t i) const;
  double steppedBackground() const;
  std::vector<double> gather(std::vector<double> ReferenceBandState::*field,
                             std::size_t firstRow) const;

  ReferenceProblem problem_;
};

}  // namespace namespace_ratseg

#endif
