#include "project/label_list.h"

#include <charconv>
#include <cmath>
#include <set>
#include <sstream>
#include <stdexcept>

#include "device/quoted.h"
#include "project/colour_text.h"

namespace namespace_ratseg {

namespace {

constexpr double kPercent = 0.01;

// "58", "58%", "0.58". hasUnit becomes true with a "%".
std::optional<double> amountOf(std::string word, bool& hasUnit) {
  const bool percent = word.size() > 1 && word.back() == '%';
  if (percent) word.pop_back();
  double value = 0;
  const char* end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, value);
  if (error != std::errc() || stop != end || !std::isfinite(value)) return {};
  hasUnit = hasUnit || percent;
  return value;
}

std::vector<std::string> wordsOf(const std::string& item) {
  std::istringstream in(item);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

// Takes "+-2" or "±2", also with a blank behind the sign, from the end of the words.
std::optional<double> takeDeviation(std::vector<std::string>& words, bool& hasUnit) {
  for (const std::string sign : {"+-", "±"}) {
    if (words.size() > 2 && words[words.size() - 2] == sign) {
      const auto value = amountOf(words.back(), hasUnit);
      if (!value) return {};
      words.resize(words.size() - 2);
      return value;
    }
    if (words.size() > 1 && words.back().starts_with(sign)) {
      const auto value = amountOf(words.back().substr(sign.size()), hasUnit);
      if (value) words.pop_back();
      return value;
    }
  }
  return {};
}

// One item; its numbers still in the unit of the list.
struct Item {
  ProjectLabel label;
  bool hasDeviation = false;  // the spread is a number of the list's unit

  Item(const std::string& text, bool& hasUnit) {
    std::vector<std::string> words = wordsOf(text);
    if (words.empty()) throw std::runtime_error("expected a label between commas, but found none");
    if (words.size() > 1) {
      label.spread = spreadOfWord(words.back());
      if (label.spread) words.pop_back();
    }
    if (!label.spread) {
      label.spread = takeDeviation(words, hasUnit);
      hasDeviation = label.spread.has_value();
    }
    if (words.size() > 1) {
      label.share = amountOf(words.back(), hasUnit);
      if (label.share) words.pop_back();
    }
    if (words.size() > 1) {
      label.colour = colourFromText(words.back());
      if (label.colour) words.pop_back();
    }
    for (const std::string& word : words) label.name += (label.name.empty() ? "" : " ") + word;
    bool ignored = false;
    if (words.size() == 1 && amountOf(words[0], ignored)) {
      throw std::runtime_error("expected the name of a label before its share, but found " +
                               inQuotes(text));
    }
    if (label.share.value_or(0) < 0 || label.spread.value_or(0) < 0) {
      throw std::runtime_error("expected numbers of at least 0, but found " + inQuotes(text));
    }
  }
};

void refuseTwice(const std::vector<Item>& items) {
  std::set<std::string> names;
  for (const Item& item : items) {
    if (!names.insert(item.label.name).second) {
      throw std::runtime_error("expected each label once, but found " + inQuotes(item.label.name) +
                               " twice");
    }
  }
}

// Which one takes the rest.
void findRest(std::vector<Item>& items, bool anyShare) {
  Item* rest = nullptr;
  for (Item& item : items) {
    if (item.label.share || !anyShare) continue;
    if (rest != nullptr) {
      throw std::runtime_error("expected at most one label without a share, but found " +
                               inQuotes(rest->label.name) + " and " + inQuotes(item.label.name));
    }
    rest = &item;
    item.label.takesRest = true;
  }
}

}  // namespace

std::vector<ProjectLabel> parseLabelList(const std::string& text) {
  std::vector<Item> items;
  bool hasUnit = false;
  std::size_t begin = 0;
  while (true) {
    const std::size_t comma = text.find(',', begin);
    items.emplace_back(text.substr(begin, comma - begin), hasUnit);
    if (comma == std::string::npos) break;
    begin = comma + 1;
  }
  refuseTwice(items);
  double sum = 0;
  bool anyShare = false;
  for (const Item& item : items) {
    sum += item.label.share.value_or(0);
    anyShare = anyShare || item.label.share;
  }
  findRest(items, anyShare);
  constexpr double kMostParts = 1.5;
  const double unit = hasUnit || sum > kMostParts ? kPercent : 1;
  std::vector<ProjectLabel> labels;
  for (Item& item : items) {
    if (item.label.share) item.label.share = *item.label.share * unit;
    if (item.hasDeviation) item.label.spread = *item.label.spread * unit;
    if (item.label.share.value_or(0) > 1) {
      throw std::runtime_error("expected shares of at most 100 %, but found more for " +
                               inQuotes(item.label.name));
    }
    labels.push_back(std::move(item.label));
  }
  return labels;
}

}  // namespace namespace_ratseg
