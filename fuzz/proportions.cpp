// The text of a proportions file: readProportions.

#include "app/proportions.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>

#include "exit_throws.h"
#include "options_model.h"
#include "target.h"

namespace {

using namespace namespace_ratseg;

// The numbers of a text that consists of them, read by other means; nothing where a word is in a
// form that is not certainly a number, or that a float does not hold.
std::optional<std::vector<float>> numbersOf(std::string_view text) {
  std::vector<float> numbers;
  while (!text.empty()) {
    if (fuzz::isBlank(text.front())) {
      text.remove_prefix(1);
      continue;
    }
    std::size_t length = 0;
    while (length < text.size() && !fuzz::isBlank(text[length])) ++length;
    float number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + length, number);
    if (error != std::errc() || stop != text.data() + length || !std::isfinite(number)) return {};
    numbers.push_back(number);
    text.remove_prefix(length);
  }
  return numbers;
}

std::vector<float> flat(const Proportions& p) {
  std::vector<float> numbers;
  for (std::size_t i = 0; i + 1 < p.means.size(); ++i) {
    numbers.push_back(p.means[i]);
    numbers.push_back(p.sigmas[i]);
  }
  return numbers;
}

// Reads the text. Nothing where that ends the process.
std::optional<Proportions> read(std::string_view text) {
  static const fuzz::MemoryFile file;
  file.write(text);
  const fuzz::Captured captured;
  std::optional<Proportions> proportions;
  try {
    proportions = readProportions(file.path());
  } catch (const fuzz::Ended& ended) {
    FUZZ_EXPECT(ended.status == 1, "bad proportions end the process with status 1");
    FUZZ_EXPECT(captured.out().starts_with("ERROR"), "an ERROR line says why");
  }
  fuzz::expectMessages(captured.err());
  return proportions;
}

void expectForm(const Proportions& p) {
  FUZZ_EXPECT(p.means.size() >= 2 && p.means.size() == p.sigmas.size(),
              "there is a foreground label, and each has both numbers");
  FUZZ_EXPECT(p.means.back() == 0 && p.sigmas.back() == 0, "the background has zeros");
  for (float number : flat(p)) FUZZ_EXPECT(std::isfinite(number), "numbers are finite");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::optional<Proportions> got = read(text);
  if (got) expectForm(*got);
  if (const auto numbers = numbersOf(text)) {
    const bool pairs = !numbers->empty() && numbers->size() % 2 == 0;
    FUZZ_EXPECT(got.has_value() == pairs, "pairs of numbers are accepted, an odd count is not");
    if (got) FUZZ_EXPECT(flat(*got) == *numbers, "the numbers are those of the text");
  }
  if (!got) return 0;
  std::string again;
  for (float number : flat(*got)) {
    char word[40];
    std::snprintf(word, sizeof word, "%.9g\n", static_cast<double>(number));
    again += word;
  }
  const std::optional<Proportions> second = read(again);
  FUZZ_EXPECT(second && flat(*second) == flat(*got), "what was read can be written and read again");
  return 0;
}
