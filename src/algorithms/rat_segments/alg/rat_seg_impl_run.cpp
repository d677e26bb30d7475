// The run: its loop, its report.

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

#include "algorithms/rat_segments/alg/certificate/certifier.h"
#include "algorithms/rat_segments/alg/choose_engine.h"
#include "algorithms/rat_segments/alg/engine.h"
#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "algorithms/rat_segments/alg/rat_seg_impl.h"
#include "device/console.h"
#include "device/runtime.h"

namespace namespace_ratseg {

namespace {

// dt of an iteration (docs/math.md, sections 6.1 and 12.2).
float stepScale(const Params& par, bool accelerates) {
  const bool balances = accelerates && par.lambda > 0.0f && par.lambda < FLT_MAX;
  return balances ? par.dt_multiplier * 2.0f / par.lambda : par.dt_multiplier;
}

// The labeling's step is tau/5; the exact step of the shares leaves it dt/4.
StepSizes stepSizes(const Params& par, bool accelerates) {
  const float dt = stepScale(par, accelerates);
  return {accelerates ? 1.25f * dt : dt, 1.0f / dt};
}

// A blank that aligns numbers without a minus sign.
const char* signBlank(float x) { return x >= 0.0f ? " " : ""; }

}  // namespace

// Host copies of device 0's per-label arrays, for the progress report.
struct RatSegImpl::Report {
  explicit Report(std::size_t n) : a(n), gamma(n), alpha(n), beta(n), ratios(n), sigmas(n) {}
  std::vector<float> a, gamma, alpha, beta, ratios, sigmas;
};

// The run as a watcher sees it: while it looks at the labeling, the arrays are whole.
class RatSegImpl::Watched final : public RunState {
 public:
  Watched(RatSegImpl& solver, Engine& engine) : solver_(solver), engine_(engine) {}
  const Statistics& statistics() const override { return solver_.statistics; }
  void getSolution(float* uh) override {
    engine_.handOver();
    solver_.getSolution(uh);
    engine_.takeOver();
  }

 private:
  RatSegImpl& solver_;
  Engine& engine_;
};

void RatSegImpl::run() {
  if (!allocatedArrays) {
    console().out() << "ERROR (run()): Must call alloc() first" << std::endl;
    return;
  }
  for (int d = 0; d < bands(); ++d) {
    arrays[d].weightHat = kind_weight != kind_weight_none ? arrays[d].weight.get_ptr() : nullptr;
  }
  Report report(par.n);
  std::optional<Certifier> certifier;
  if (par.tolerance > 0.0f) certifier.emplace(*this);
  std::unique_ptr<Engine> engine = chooseEngine(*this, stepSizes(par, accelerates()));
  par.cancel = false;
  statistics = {};

  const std::atomic_ref<bool> cancel(par.cancel);
  std::size_t ahead = 1;  // steps of a pass through the loop
  Watched watched(*this, *engine);
  for (std::size_t step = 1; step <= par.Nsteps; step += ahead) {
    if (par.watcher != nullptr && !par.watcher->goOn(watched)) {
      statistics.stopped = true;
      break;
    }
    const bool reports = par.outModulo != 0 && step % par.outModulo == 0;
    if (reports || cancel) {
      deviceSynchronizeAll();
      statistics.stopped = cancel;
      if (cancel) break;
      printStep(step);
    }
    ahead = engine->stepsAhead(step);
    if (certifier) ahead = std::min(ahead, certifier->stepsToCheck(step));
    engine->advance(ahead);
    if (reports) engine->publish();
    statistics.iterations += ahead;
    if (reports) printReport(report);
    if (certifier && certifier->stepsToCheck(step) == ahead) {
      engine->handOver();
      if (certifier->certify(statistics.iterations)) break;
      engine->takeOver();
    }
  }
  // Before the engine ends: what fails here is told, which a destructor could not.
  engine->handOver();
  engine.reset();
  deviceSynchronizeAll();
  statistics.finite = statistics.iterations == 0 || stateIsFinite();
}

void RatSegImpl::printStep(std::size_t step) {
  if (par.Nsteps == par.outModulo) return;
  const std::lock_guard lock(standardOutputMutex);
  console().out() << "Step " << step << " of " << par.Nsteps << std::endl;
}

void RatSegImpl::printReport(Report& report) {
  gpudata& g = arrays[0];
  g.sum_u.copyToHost(sum_u_host);
  check();
  g.a.copyToHost(report.a.data());
  check();
  g.gamma.copyToHost(report.gamma.data());
  check();
  g.alpha.copyToHost(report.alpha.data());
  check();
  g.beta.copyToHost(report.beta.data());
  check();
  g.ratios.copyToHost(report.ratios.data());
  check();
  g.sigmas.copyToHost(report.sigmas.data());
  check();

  const float pixels = static_cast<float>(par.w * par.h);
  const std::lock_guard lock(standardOutputMutex);
  console().out() << std::fixed;
  for (std::size_t i = 0; i < par.n; ++i) {
    const float a = report.a[i];
    const float gamma = report.gamma[i];
    console().out() << "  a" << i << "=" << a << ", sum_u=" << sum_u_host[i] / pixels
                    << ",  gamma=" << signBlank(gamma) << gamma;
    if (i != ind_bgr) {
      const float B = 1.0f - report.a[ind_bgr];
      const float ratio = report.ratios[i];
      const float sigma = report.sigmas[i];
      const float q = a / B;
      const float z = (q - ratio) / sigma;
      const float deviation = (a - B * ratio) / sigma;
      const float bound = deviation * deviation / B;
      const float alpha = report.alpha[i];
      const float beta = report.beta[i];
      console().out() << ",    q=" << q << ", q0=" << ratio << ", s0=" << sigma
                      << ",  (q-q0)/s0=" << signBlank(z) << z << ", bound=" << signBlank(bound)
                      << bound << ",  alpha=" << signBlank(alpha) << alpha
                      << ", beta=" << signBlank(beta) << beta;
    }
    console().out() << std::endl;
  }
}

}  // namespace namespace_ratseg
