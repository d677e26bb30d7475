#include "util/Timer.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <sstream>
#include <vector>

namespace namespace_ratseg {

namespace {

constexpr float kTicksPerSecond = 1000000;

// A line of Timer::printAll.
struct Row {
  const std::string& name;
  long long ms;
  std::string msText;
  std::string percentText;
};

// ms as per cent of total, with two decimals and the further ones cut off.
std::string percentText(long long ms, long long total) {
  const long long hundredths = total == 0 ? 0 : ms * 10000 / total;
  std::ostringstream text;
  text << static_cast<double>(hundredths) / 100;
  return text.str();
}

std::size_t longest(const std::vector<Row>& rows, std::size_t (*length)(const Row&)) {
  std::size_t maxLength = 0;
  for (const Row& row : rows) maxLength = std::max(maxLength, length(row));
  return maxLength;
}

std::string blanks(std::size_t count) { return std::string(count, ' '); }

}  // namespace

float Timer::TimeEntry::get() {
  if (running) end();
  return static_cast<float>(std::floor(static_cast<double>(tOverall) * 100000 + 0.5) / 100000);
}

void Timer::TimeEntryCPU::begin() {
  start = std::clock();
  running = true;
}

void Timer::TimeEntryCPU::end() {
  stop = std::clock();
  running = false;
  tOverall += static_cast<float>(stop - start) / kTicksPerSecond;
}

void Timer::clear() { entries.clear(); }

void Timer::clear(const std::string& name) { entries.erase(name); }

void Timer::begin(const std::string& name) {
  std::unique_ptr<TimeEntry>& entry = entries[name];
  if (entry == nullptr) entry.reset(createEntry());
  entry->begin();
}

void Timer::end(const std::string& name) {
  const auto found = entries.find(name);
  if (found == entries.end()) {
    std::cerr << "Timer: ERROR: Call of 'end(\"" << name
              << "\")' without previous call of 'begin(\"" << name << "\")'." << std::endl;
    return;
  }
  found->second->end();
}

float Timer::get(const std::string& name) {
  const auto found = entries.find(name);
  if (found == entries.end()) {
    std::cerr << "Timer: ERROR: Element <" << name << "> not found" << std::endl;
    return 0;
  }
  return found->second->get();
}

void Timer::printAll(std::ostream& out, std::string prefix) {
  std::vector<Row> rows;
  long long total = 0;
  for (const auto& [name, entry] : entries) {
    const auto ms = static_cast<long long>(1000 * entry->get());
    total += ms;
    rows.push_back({name, ms, std::to_string(ms), ""});
  }
  for (Row& row : rows) row.percentText = percentText(row.ms, total);
  const std::size_t nameWidth = longest(rows, [](const Row& row) { return row.name.size(); });
  const std::size_t msWidth = longest(rows, [](const Row& row) { return row.msText.size(); });
  const std::size_t percentWidth =
      longest(rows, [](const Row& row) { return row.percentText.size(); });

  out << prefix << "Times:" << std::endl;
  for (const Row& row : rows) {
    out << prefix << "    " << row.name << ": " << blanks(nameWidth - row.name.size())
        << blanks(msWidth - row.msText.size()) << row.msText << " ms";
    std::cout << "    ";
    out << blanks(percentWidth - row.percentText.size()) << row.percentText << "%" << std::endl;
  }
}

void Timer::printAll(std::string prefix) { printAll(std::cout, prefix); }

void Timer::printAll() { printAll(std::cout, ""); }

Timer::TimeEntry* Timer::createEntry() { return new TimeEntryCPU(); }

}  // namespace namespace_ratseg
