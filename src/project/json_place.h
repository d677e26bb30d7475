#ifndef RATSEG_PROJECT_JSON_PLACE_H
#define RATSEG_PROJECT_JSON_PLACE_H

#include <cstddef>
#include <initializer_list>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace namespace_ratseg {

// The JSON of a text. Throws ProjectError with line and column for a text that is none, and for an
// object that has a field twice.
nlohmann::json parseJson(const std::string& text);

// A value in a JSON document that knows where it stands, for errors that say so. The document must
// outlive it. What throws throws ProjectError.
class JsonPlace {
 public:
  // path is the value's JSON pointer.
  JsonPlace(const nlohmann::json& json, std::string path) : json_(&json), path_(std::move(path)) {}

  const nlohmann::json& json() const { return *json_; }

  // Says that something else was expected.
  [[noreturn]] void refuse(const std::string& expected) const;

  // Refuses fields of other names, and values that are no objects.
  void allow(std::initializer_list<const char*> names) const;

  std::optional<JsonPlace> find(const char* name) const;  // none where the field is missing
  JsonPlace required(const char* name) const;

  std::vector<JsonPlace> items(const std::string& expected) const;
  std::string text(const std::string& expected) const;
  std::string fileName() const;  // not empty, without zeros
  double number(const std::string& expected, double least, double greatest) const;
  std::size_t wholeNumber(std::size_t least, std::size_t greatest) const;  // below 2^53

  // One of these words' values.
  template <class T>
  T oneOf(std::initializer_list<std::pair<const char*, T>> words) const {
    std::string list;
    for (const auto& [word, value] : words) {
      if (isText(word)) return value;
      list += std::string(list.empty() ? "" : " or ") + "\"" + word + "\"";
    }
    refuse(list);
  }

 private:
  bool isText(const char* word) const;

  const nlohmann::json* json_;
  std::string path_;
};

}  // namespace namespace_ratseg

#endif
