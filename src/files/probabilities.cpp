#include "files/probabilities.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "files/file_error.h"

namespace namespace_ratseg {

namespace {

constexpr double kTolerance = 1e-3;

std::string numberText(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

// "at column 3, row 5"
std::string placeText(std::size_t pixel, std::size_t w) {
  return "at column " + std::to_string(pixel % w) + ", row " + std::to_string(pixel / w);
}

std::string labelText(std::size_t index, std::size_t pixels, std::size_t w) {
  return "for label " + std::to_string(index / pixels) + " " + placeText(index % pixels, w);
}

std::string countText(std::size_t count, std::size_t all, const char* what) {
  return "(" + std::to_string(count) + " of " + std::to_string(all) + " " + what + ")";
}

// Throws where any value is wrong: "has a value of 1.5 for label 0 at ... (3 of 20 values)".
template <class IsWrong>
void refuse(const std::vector<float>& values, std::size_t labels, std::size_t w, IsWrong&& isWrong,
            const std::string& remedy) {
  const auto first = std::find_if(values.begin(), values.end(), isWrong);
  if (first == values.end()) return;
  const auto wrong = static_cast<std::size_t>(std::count_if(first, values.end(), isWrong));
  const auto index = static_cast<std::size_t>(first - values.begin());
  throw FileError("has " + (std::isnan(*first) ? std::string("NaN") : numberText(*first)) + " " +
                  labelText(index, values.size() / labels, w) + " " +
                  countText(wrong, values.size(), "values") + remedy);
}

bool isNoNumber(float value) { return std::isnan(value); }

double sumAt(const std::vector<float>& values, std::size_t pixels, std::size_t p) {
  double sum = 0;
  for (std::size_t k = p; k < values.size(); k += pixels) sum += static_cast<double>(values[k]);
  return sum;
}

}  // namespace

double sumTolerance(std::size_t labels, const SampleType& samples) {
  const auto n = static_cast<double>(labels);
  if (samples.kind == SampleKind::unsignedInteger) {
    return kTolerance + n / (std::ldexp(1.0, samples.bits) - 1);
  }
  return samples.bits == 16 ? kTolerance + n * std::ldexp(1.0, -12) : kTolerance;
}

void checkProbabilities(const std::vector<float>& values, std::size_t labels, std::size_t w,
                        const SampleType& samples) {
  constexpr float kSlack = 1e-3f;
  refuse(values, labels, w, isNoNumber, "");
  refuse(
      values, labels, w, [](float v) { return v < 0 || v > 1 + kSlack; },
      "; probabilities are from 0 to 1 (costs: -costs)");
  const std::size_t pixels = values.size() / labels;
  const double tolerance = sumTolerance(labels, samples);
  std::size_t wrong = 0, first = 0;
  for (std::size_t p = 0; p < pixels; ++p) {
    if (std::abs(sumAt(values, pixels, p) - 1) <= tolerance) continue;
    if (wrong++ == 0) first = p;
  }
  if (wrong == 0) return;
  throw FileError("has probabilities that sum to " + numberText(sumAt(values, pixels, first)) +
                  " " + placeText(first, w) + " " + countText(wrong, pixels, "pixels") +
                  ", not to 1 within " + numberText(tolerance));
}

void checkCosts(const std::vector<float>& values, std::size_t labels, std::size_t w) {
  refuse(values, labels, w, isNoNumber, "");
}

bool lookLikeProbabilities(const std::vector<float>& values, std::size_t labels) {
  const auto isPart = [](float value) { return value >= 0 && value <= 1; };
  if (!std::all_of(values.begin(), values.end(), isPart)) return false;
  const std::size_t pixels = values.size() / labels;
  for (std::size_t p = 0; p < pixels; ++p) {
    if (std::abs(sumAt(values, pixels, p) - 1) > kTolerance) return false;
  }
  return true;
}

void scaleToOne(std::vector<float>& values, const SampleType& samples) {
  if (samples.kind != SampleKind::unsignedInteger) return;
  const auto one = static_cast<float>(std::ldexp(1.0, samples.bits) - 1);
  for (float& value : values) value /= one;
}

void probabilitiesToCosts(std::vector<float>& values, float greatest) {
  for (float& value : values) {
    // 0 becomes the greatest, what rounding left above 1 becomes 0.
    value = value > 0 ? std::clamp(-std::log(value), 0.0f, greatest) : greatest;
  }
}

}  // namespace namespace_ratseg
