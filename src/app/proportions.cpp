#include "app/proportions.h"

#include <cmath>
#include <fstream>
#include <iostream>
#include <locale>
#include <sstream>
#include <string_view>
#include <utility>

#include "app/messages.h"

namespace namespace_ratseg {

namespace {

constexpr std::size_t kMaxTextBytes = std::size_t{16} << 20;

// The text up to its end, which may never come: up to the first zero byte, as no text holds one,
// and not much beyond kMaxTextBytes.
std::string readText(std::istream& stream) {
  constexpr std::size_t kPiece = 65536;
  std::string text;
  while (text.size() <= kMaxTextBytes && stream.good()) {
    const std::size_t before = text.size();
    text.resize(before + kPiece);
    stream.read(text.data() + before, kPiece);
    text.resize(before + static_cast<std::size_t>(stream.gcount()));
    const std::size_t zero = text.find('\0', before);
    if (zero == std::string::npos) continue;
    text.resize(zero + 1);
    break;
  }
  return text;
}

std::istringstream openText(const std::string& file) {
  std::ifstream stream(file);
  if (!stream.is_open()) {
    warnIfUnreadable(file);
    fail("ERROR opening proportions file " + file);
  }
  std::string text = readText(stream);
  if (text.size() > kMaxTextBytes) {
    fail("ERROR reading proportions file " + file + ": more than " + std::to_string(kMaxTextBytes) +
         " bytes of text");
  }
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
  return std::istringstream(std::move(text));
}

// Extracts a number. False, with the text where it was, when none follows.
bool extract(std::istringstream& text, float& number) {
  if ((text >> std::ws).eof()) return false;
  const std::istringstream::pos_type start = text.tellg();
  if (text >> number) return true;
  text.clear();
  text.seekg(start);
  return false;
}

// Warns of what is left of the text, if anything.
void warnOfRest(const std::string& file, std::istringstream& text, const std::string& place) {
  std::string word;
  if (text >> word) {
    warn(inQuotes(file) + ": reading stopped at " + inQuotes(word) + ", which is not a number, " +
         place);
  }
}

void warnOfSenselessValues(const std::string& file, const Proportions& foreground) {
  const std::string begin = inQuotes(file) + ": ";
  const auto number = [](float x) { return (std::ostringstream() << x).str(); };
  float sum = 0;
  for (std::size_t i = 0; i < foreground.means.size(); ++i) {
    const float mean = foreground.means[i];
    const float sigma = foreground.sigmas[i];
    const std::string label = " of label " + std::to_string(i);
    if (mean < 0 || mean > 1) {
      warn(begin + "mean " + number(mean) + label + " is not from 0 to 1" +
           (mean >= 2 && mean <= 100 ? "; " + number(mean) + " % is " + number(mean / 100) : ""));
    }
    if (sigma == 0) warn(begin + "sigma 0" + label + " makes its share strict");
    if (sigma < 0) {
      warn(begin + "sigma " + number(sigma) + label + " is negative; it counts as " +
           number(-sigma));
    }
    sum += mean;
  }
  constexpr float kTolerance = 0.05f;
  if (foreground.means.size() == 1) {
    warn(begin + "with a single foreground label the proportions have no effect");
  } else if (std::abs(sum - 1) > kTolerance) {
    warn(begin + "the means sum to " + number(sum) +
         "; they are shares of the foreground and should sum to 1");
  }
}

}  // namespace

Proportions readProportions(const std::string& file) {
  std::istringstream text = openText(file);
  text.exceptions(std::ios::badbit);  // Lack of memory is not the end of the list.
  text.imbue(std::locale::classic());
  Proportions proportions;
  float mean = 0;
  float sigma = 0;
  while (extract(text, mean)) {
    const std::string label = std::to_string(proportions.means.size());
    if (!extract(text, sigma)) {
      warnOfRest(file, text, "in the sigma of label " + label);
      fail("ERROR reading proportions file " + file + ": no sigma given for label " + label);
    }
    proportions.means.push_back(mean);
    proportions.sigmas.push_back(sigma);
  }
  warnOfRest(file, text, "after " + std::to_string(proportions.means.size()) + " labels");
  if (proportions.means.empty()) {
    warnIfUnreadable(file);
    fail("ERROR reading proportions file " + file + ": no data found");
  }
  warnOfSenselessValues(file, proportions);
  proportions.means.push_back(0);
  proportions.sigmas.push_back(0);
  return proportions;
}

}  // namespace namespace_ratseg
