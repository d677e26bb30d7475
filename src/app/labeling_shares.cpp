#include "app/labeling_shares.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <ostream>
#include <string>

namespace namespace_ratseg {

namespace {

std::string text(const char* format, double value) {
  char digits[64];
  std::snprintf(digits, sizeof digits, format, value);
  return digits;
}

// Pixels of a label among those of a whole; "-" where the whole has none.
std::string share(std::size_t part, std::size_t whole) {
  if (whole == 0) return "-";
  return text("%.6f", static_cast<double>(part) / static_cast<double>(whole));
}

// Entries do not begin a line with a number: reports of seconds do.
std::string row(const std::string& label, const std::string& ofForeground, const std::string& mean,
                const std::string& spread, const std::string& ofImage) {
  char line[200];
  std::snprintf(line, sizeof line, "    %-22s %13s %11s %11s %12s\n", label.c_str(),
                ofForeground.c_str(), mean.c_str(), spread.c_str(), ofImage.c_str());
  return line;
}

}  // namespace

void printShares(std::ostream& out, const std::vector<int>& labeling, const Proportions& wished,
                 bool balanced) {
  const std::size_t n = wished.means.size();
  std::vector<std::size_t> pixels(n);
  for (const int label : labeling) ++pixels[static_cast<std::size_t>(label)];
  const std::size_t foreground = labeling.size() - pixels[n - 1];

  out << "Shares of the labeling:\n" << row("", "of foreground", "wished", "spread", "of image");
  for (std::size_t i = 0; i + 1 < n; ++i) {
    out << row("label " + std::to_string(i), share(pixels[i], foreground),
               text("%g", static_cast<double>(wished.means[i])),
               text("%g", static_cast<double>(wished.sigmas[i])),
               share(pixels[i], labeling.size()));
  }
  out << row("label " + std::to_string(n - 1) + " (background)", "-", "-", "-",
             share(pixels[n - 1], labeling.size()));
  if (foreground == 0) out << "    no pixel has a foreground label\n";
  for (std::size_t i = 0; balanced && foreground > 0 && i + 1 < n; ++i) {
    constexpr double kFar = 3;
    const double found = static_cast<double>(pixels[i]) / static_cast<double>(foreground);
    const double apart = std::abs(found - static_cast<double>(wished.means[i]));
    const double spread = std::abs(static_cast<double>(wished.sigmas[i]));
    if (spread > 0 && apart > kFar * spread) {
      out << "    label " << i << " is " << text("%.1f", apart / spread)
          << " spreads from its mean\n";
    }
  }
  out.flush();
}

}  // namespace namespace_ratseg
