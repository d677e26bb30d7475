#include "project/json_place.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>

#include "device/quoted.h"
#include "project/project_file.h"

namespace namespace_ratseg {

namespace {

using nlohmann::json;

// What a value is, in a line.
std::string describe(const json& value) {
  if (value.is_object()) return "an object";
  if (value.is_array()) return "a list of " + std::to_string(value.size());
  if (value.is_string()) return inQuotes(value.get<std::string>());
  return inLine(value.dump());
}

// A part of a path: "~" and "/" are written "~0" and "~1".
std::string escaped(const std::string& name) {
  std::string result;
  for (const char c : name) {
    if (c == '~') {
      result += "~0";
    } else if (c == '/') {
      result += "~1";
    } else {
      result += c;
    }
  }
  return result;
}

[[noreturn]] void refuseSyntax(const std::string& text, const json::parse_error& error) {
  const std::size_t end = std::min(error.byte > 0 ? error.byte - 1 : 0, text.size());
  const auto stop = text.begin() + static_cast<std::ptrdiff_t>(end);
  const auto line = 1 + std::count(text.begin(), stop, '\n');
  const std::size_t lineEnd = end > 0 ? text.rfind('\n', end - 1) : std::string::npos;
  const std::size_t column = lineEnd == std::string::npos ? end + 1 : end - lineEnd;
  std::string reason = error.what();
  const std::size_t dash = reason.find(" - ");
  if (dash != std::string::npos) reason.erase(0, dash + 3);
  throw ProjectError("line " + std::to_string(line) + ", column " + std::to_string(column) +
                     ": expected JSON, but found an error: " + inLine(reason));
}

// Notices fields that come twice, of which the parser would keep the last one.
class FieldsOnce {
 public:
  bool operator()(int, json::parse_event_t event, json& value) {
    if (event == json::parse_event_t::object_start) names_.emplace_back();
    if (event == json::parse_event_t::object_end) names_.pop_back();
    if (event == json::parse_event_t::key && !names_.back().insert(value).second) {
      throw ProjectError("expected each field of an object once, but found " +
                         inQuotes(value.get<std::string>()) + " twice");
    }
    return true;
  }

 private:
  std::vector<std::set<std::string>> names_;
};

}  // namespace

json parseJson(const std::string& text) {
  try {
    FieldsOnce once;
    return json::parse(text, std::ref(once));
  } catch (const json::parse_error& error) {
    refuseSyntax(text, error);
  } catch (const json::exception& error) {  // numbers out of range
    throw ProjectError(std::string("expected JSON, but found an error: ") + inLine(error.what()));
  }
}

void JsonPlace::refuse(const std::string& expected) const {
  throw ProjectError((path_.empty() ? "" : inLine(path_) + ": ") + "expected " + expected +
                     ", but found " + describe(*json_));
}

void JsonPlace::allow(std::initializer_list<const char*> names) const {
  if (!json_->is_object()) refuse("an object {...}");
  for (const auto& [key, value] : json_->items()) {
    if (std::find(names.begin(), names.end(), key) != names.end()) continue;
    std::string list;
    for (const char* name : names) list += (list.empty() ? "" : ", ") + std::string(name);
    throw ProjectError(inLine(path_ + "/" + escaped(key)) + ": expected one of the fields " + list +
                       ", but found an unknown one");
  }
}

std::optional<JsonPlace> JsonPlace::find(const char* name) const {
  const auto found = json_->find(name);
  if (found == json_->end()) return {};
  return JsonPlace(*found, path_ + "/" + name);
}

JsonPlace JsonPlace::required(const char* name) const {
  if (!json_->is_object()) refuse("an object {...}");
  if (const auto place = find(name)) return *place;
  throw ProjectError((path_.empty() ? "" : path_ + ": ") + "expected a field \"" + name +
                     "\", but found none");
}

std::vector<JsonPlace> JsonPlace::items(const std::string& expected) const {
  if (!json_->is_array()) refuse(expected);
  std::vector<JsonPlace> places;
  for (std::size_t k = 0; k < json_->size(); ++k) {
    places.emplace_back((*json_)[k], path_ + "/" + std::to_string(k));
  }
  return places;
}

std::string JsonPlace::text(const std::string& expected) const {
  if (!json_->is_string()) refuse(expected);
  return json_->get<std::string>();
}

std::string JsonPlace::fileName() const {
  const std::string name = text("the name of a file");
  if (name.empty() || name.find('\0') != std::string::npos) refuse("the name of a file");
  return name;
}

double JsonPlace::number(const std::string& expected, double least, double greatest) const {
  if (!json_->is_number()) refuse(expected);
  const double value = json_->get<double>();
  if (!(value >= least && value <= greatest)) refuse(expected);
  return value;
}

std::size_t JsonPlace::wholeNumber(std::size_t least, std::size_t greatest) const {
  const std::string expected = "a whole number from " + std::to_string(least) + " on";
  if (!json_->is_number()) refuse(expected);
  const double value = json_->get<double>();  // 2.0 is 2
  const bool within = value >= static_cast<double>(least) && value <= static_cast<double>(greatest);
  if (!within || value != std::floor(value)) refuse(expected);
  return static_cast<std::size_t>(value);
}

bool JsonPlace::isText(const char* word) const { return *json_ == word; }

}  // namespace namespace_ratseg
