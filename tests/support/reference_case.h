#ifndef RATSEG_TESTS_SUPPORT_REFERENCE_CASE_H
#define RATSEG_TESTS_SUPPORT_REFERENCE_CASE_H

// The small problems with known results that lie beside the project, in the folder `cases` of
// RATSEG_SHARED_DIR; an environment variable of that name stands for another one. Where that folder
// is missing there are no names, and tests say SKIPPED.

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/packed_array.h"

namespace namespace_ratseg {

// Reads JSON made of objects, numbers and arrays of numbers: all numbers by their path, the names
// of nested objects joined by dots; a single number is a list of one. Throws std::runtime_error on
// anything else.
class FlatJson {
 public:
  using Numbers = std::map<std::string, std::vector<double>>;

  static Numbers parse(const std::string& text) {
    FlatJson json(text);
    json.object("");
    json.expect(json.peek() == '\0', "end of text");
    return std::move(json.numbers_);
  }

 private:
  explicit FlatJson(const std::string& text) : text_(text) {}

  void expect(bool ok, const char* what) const {
    if (!ok) {
      throw std::runtime_error(std::string("JSON: expected ") + what + " at character " +
                               std::to_string(at_));
    }
  }

  char peek() {
    while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_]))) ++at_;
    return at_ < text_.size() ? text_[at_] : '\0';
  }

  void take(char c, const char* what) {
    expect(peek() == c, what);
    ++at_;
  }

  // The comma between two elements: false at the closing bracket, which it takes.
  bool another(char close) {
    if (peek() == ',') {
      ++at_;
      return true;
    }
    take(close, "a comma or a closing bracket");
    return false;
  }

  double number() {
    peek();
    char* end = nullptr;
    const double value = std::strtod(text_.c_str() + at_, &end);
    const auto length = static_cast<std::size_t>(end - (text_.c_str() + at_));
    expect(length > 0, "a number");
    at_ += length;
    return value;
  }

  std::string name() {
    take('"', "a name");
    const std::size_t end = text_.find('"', at_);
    expect(end != std::string::npos, "the end of a name");
    const std::string result = text_.substr(at_, end - at_);
    at_ = end + 1;
    return result;
  }

  void array(std::vector<double>& values) {
    take('[', "an array");
    if (peek() == ']') {
      ++at_;
      return;
    }
    do values.push_back(number());
    while (another(']'));
  }

  void object(const std::string& prefix) {
    take('{', "an object");
    do {
      const std::string path = prefix + name();
      take(':', "a colon");
      if (peek() == '{') {
        object(path + ".");
      } else if (peek() == '[') {
        array(numbers_[path]);
      } else {
        numbers_[path] = {number()};
      }
    } while (another('}'));
  }

  const std::string& text_;
  std::size_t at_ = 0;
  Numbers numbers_;
};

// A case: the input, the parameters, and what the iteration must arrive at. Per-pixel arrays are
// label-major planes of w h values; per-label arrays hold n values. The background is the last
// label, with ratio and sigma 0. The iteration starts from the pixelwise best label, in one band.
struct ReferenceCase {
  std::string name, folder;
  std::size_t w = 0, h = 0, n = 0, ind_bgr = 0, iterations = 0;
  int kind_prior = 0;
  float lambda = 0, mu = 0, eps = 0, dt_multiplier = 1, weightcoeff = 0;
  std::vector<float> rho, weight;
  std::vector<float> ratios, sigmas, mins, maxs;
  std::vector<double> a, gamma, alpha, beta, sum_u;  // expected
  std::vector<float> u;                              // expected

  // Files of the folder that tests of the whole program hand to it.
  std::string file(const std::string& base) const { return folder + "/" + base; }
};

inline std::string referenceCaseFolder() {
  const char* other = std::getenv("RATSEG_SHARED_DIR");
  return std::string(other != nullptr ? other : RATSEG_SHARED_DIR) + "/cases";
}

// The names of all cases, sorted. Empty where the folder is missing.
inline std::vector<std::string> referenceCaseNames() {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(referenceCaseFolder(), missing)) {
    if (std::filesystem::exists(entry.path() / "case.json", missing)) {
      names.push_back(entry.path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

namespace reference_case {

inline FlatJson::Numbers readNumbers(const std::string& file) {
  std::ifstream in(file);
  if (!in) throw std::runtime_error("cannot open " + file);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return FlatJson::parse(text);
}

inline double single(const FlatJson::Numbers& json, const std::string& key) {
  const auto& values = json.at(key);
  if (values.size() != 1) throw std::runtime_error(key + " is not one number");
  return values[0];
}

// The pairs of mean and sigma of the foreground labels, then zeros for the background.
inline void readProportions(ReferenceCase& c) {
  std::ifstream in(c.file("proportions.txt"));
  float mean = 0, sigma = 0;
  while (in >> mean >> sigma) {
    c.ratios.push_back(mean);
    c.sigmas.push_back(sigma);
  }
  c.ratios.push_back(0);
  c.sigmas.push_back(0);
  for (std::size_t i = 0; i < c.ratios.size(); ++i) {
    c.mins.push_back(std::clamp(c.ratios[i] - 3 * c.sigmas[i], 0.0f, 1.0f));
    c.maxs.push_back(std::clamp(c.ratios[i] + 3 * c.sigmas[i], 0.0f, 1.0f));
  }
}

inline void checkSizes(const ReferenceCase& c) {
  const std::size_t plane = c.w * c.h;
  bool ok = c.ratios.size() == c.n && c.rho.size() == plane * c.n && c.weight.size() == plane &&
            c.u.size() == plane * c.n;
  for (const auto* expected : {&c.a, &c.gamma, &c.alpha, &c.beta, &c.sum_u}) {
    ok = ok && expected->size() == c.n;
  }
  if (!ok) throw std::runtime_error("sizes of the case do not fit: " + c.folder);
}

}  // namespace reference_case

// Reads the case of that name. Throws std::runtime_error or std::out_of_range when its files are
// missing or do not fit together.
inline ReferenceCase loadReferenceCase(const std::string& name) {
  ReferenceCase c;
  c.name = name;
  c.folder = referenceCaseFolder() + "/" + name;
  const FlatJson::Numbers json = reference_case::readNumbers(c.file("case.json"));
  const auto number = [&json](const char* key) { return reference_case::single(json, key); };
  c.w = static_cast<std::size_t>(number("w"));
  c.h = static_cast<std::size_t>(number("h"));
  c.n = static_cast<std::size_t>(number("n"));
  c.ind_bgr = c.n - 1;
  c.iterations = static_cast<std::size_t>(number("iterations"));
  c.kind_prior = static_cast<int>(number("kind_prior"));
  c.lambda = static_cast<float>(number("lambda"));
  c.mu = static_cast<float>(number("mu"));
  c.eps = static_cast<float>(number("eps"));
  c.dt_multiplier = static_cast<float>(number("dt_multiplier"));
  c.weightcoeff = static_cast<float>(number("weightcoeff"));
  c.a = json.at("expected.a");
  c.gamma = json.at("expected.gamma");
  c.alpha = json.at("expected.alpha");
  c.beta = json.at("expected.beta");
  c.sum_u = json.at("expected.sum_u");
  c.rho = readPackedArray<float>(c.file("dataterm.gz"));
  c.weight = readPackedArray<float>(c.file("expected_weight.gz"));
  c.u = readPackedArray<float>(c.file("expected_u.gz"));
  reference_case::readProportions(c);
  reference_case::checkSizes(c);
  return c;
}

}  // namespace namespace_ratseg

#endif
