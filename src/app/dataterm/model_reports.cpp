#include "app/dataterm/model_reports.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "app/messages.h"
#include "device/ceil_div.h"
#include "device/host/host_launch.h"

namespace namespace_ratseg {

namespace {

std::string formatted(const char* format, double value) {
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string percent(double part) { return formatted("%.0f %%", 100 * part); }

std::string strokesText(std::size_t strokes) {
  return std::to_string(strokes) + (strokes == 1 ? " held-out stroke" : " held-out strokes");
}

void warnOfConfusion(const Learned& model) {
  constexpr double kMuch = 0.25;
  const std::size_t n = model.labels.size();
  for (std::size_t k = 0; k < n * n; ++k) {
    if (k / n == k % n || model.confusion[k] <= kMuch) continue;
    warn("label " + std::to_string(model.labels[k / n]) + " is taken for label " +
         std::to_string(model.labels[k % n]) + " in " + percent(model.confusion[k]) +
         " of the held-out strokes");
  }
}

// Per label the number of pixels whose best it is, and its summed probability.
struct Sums {
  std::vector<double> best, probability;
};

Sums sumsOf(const float* rho, std::size_t labels, std::size_t pixels) {
  constexpr std::size_t kPiece = 65536;
  const std::size_t pieces = ceilDiv(pixels, kPiece);
  std::vector<Sums> parts(pieces, {std::vector<double>(labels), std::vector<double>(labels)});
  parallelFor(pieces, labels * pixels * 10, [&](std::size_t piece) {
    std::vector<double> terms(labels);
    for (std::size_t p = piece * kPiece; p < std::min(pixels, (piece + 1) * kPiece); ++p) {
      std::size_t best = 0;
      for (std::size_t k = 1; k < labels; ++k) {
        if (rho[k * pixels + p] < rho[best * pixels + p]) best = k;
      }
      double sum = 0;
      for (std::size_t k = 0; k < labels; ++k) {
        terms[k] = std::exp(static_cast<double>(rho[best * pixels + p] - rho[k * pixels + p]));
        sum += terms[k];
      }
      ++parts[piece].best[best];
      for (std::size_t k = 0; k < labels; ++k) parts[piece].probability[k] += terms[k] / sum;
    }
  });
  Sums all = {std::vector<double>(labels), std::vector<double>(labels)};
  for (const Sums& part : parts) {
    for (std::size_t k = 0; k < labels; ++k) {
      all.best[k] += part.best[k];
      all.probability[k] += part.probability[k];
    }
  }
  return all;
}

}  // namespace

void reportLearned(const Learned& model, const DatatermOptions& options) {
  if (options.model.kind != ModelOptions::Kind::forest) {
    const bool fixed = options.model.mix.has_value();
    note("costs: " + formatted("%.2f", static_cast<double>(model.mix)) + " forest, " +
         formatted("%.2f", 1 - static_cast<double>(model.mix)) + " colours" +
         (fixed ? ", as -mix says" : ", by " + strokesText(model.heldOutStrokes)));
  }
  if (model.confusion.empty()) return;
  const std::size_t n = model.labels.size();
  std::string line = "right in held-out strokes:";
  for (std::size_t c = 0; c < n; ++c) {
    line += (c == 0 ? " label " : ", label ") + std::to_string(model.labels[c]) + " " +
            percent(model.confusion[c * n + c]);
  }
  note(line);
  warnOfConfusion(model);
}

void reportShares(const float* rho, std::size_t labels, std::size_t pixels,
                  const std::vector<double>& truth, const DatatermOptions& options) {
  const Sums sums = sumsOf(rho, labels, pixels);
  const std::size_t listed = options.sharesOfImage ? labels : labels - 1;
  double best = 0, probability = 0;
  for (std::size_t k = 0; k < listed; ++k) {
    best += sums.best[k];
    probability += sums.probability[k];
  }
  const std::string of = options.sharesOfImage ? "image" : "foreground";
  for (std::size_t k = 0; k < listed; ++k) {
    std::string line = "label " + std::to_string(k) + " by the costs alone: ";
    line += formatted("%.4f", best > 0 ? sums.best[k] / best : 0) + " of the " + of +
            " by best labels, " +
            formatted("%.4f", probability > 0 ? sums.probability[k] / probability : 0) +
            " by probabilities";
    if (k < truth.size()) line += "; " + formatted("%.4f", truth[k]) + " in " + options.truth;
    note(line);
  }
}

}  // namespace namespace_ratseg
