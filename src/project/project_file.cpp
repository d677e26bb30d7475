#include "project/project_file.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "device/quoted.h"
#include "project/colour_text.h"
#include "project/json_place.h"
#include "util/small_file.h"

namespace namespace_ratseg {

namespace {

constexpr const char* kVersionField = "ratseg-project";
constexpr std::size_t kMaxLabels = 255;
constexpr std::size_t kMaxNameBytes = 200;

// "58 %" or a number of parts.
std::optional<double> partOf(const JsonPlace& place) {
  if (place.json().is_number()) {
    const double part = place.json().get<double>();
    if (part < 0 || part > 1) return {};
    return part;
  }
  std::string text = place.json().is_string() ? place.json().get<std::string>() : "";
  if (text.empty() || text.back() != '%') return {};
  text.pop_back();
  while (!text.empty() && text.back() == ' ') text.pop_back();
  const auto value = nlohmann::json::parse(text, nullptr, false);
  if (!value.is_number()) return {};
  const double percent = value.get<double>();
  if (percent < 0 || percent > 100) return {};
  return percent / 100;
}

void readShare(const JsonPlace& place, ProjectLabel& label) {
  if (place.json() == "rest") {
    label.takesRest = true;
    return;
  }
  label.share = partOf(place);
  if (!label.share) place.refuse("a number from 0 to 1, \"58 %\" or \"rest\"");
}

double readSpread(const JsonPlace& place) {
  if (place.json().is_string()) {
    if (const auto spread = spreadOfWord(place.json().get<std::string>())) return *spread;
  }
  const auto part = partOf(place);
  if (!part) place.refuse("a number from 0 to 1, \"2 %\", \"measured\", \"roughly\" or \"guess\"");
  return *part;
}

ProjectLabel readLabel(const JsonPlace& place) {
  place.allow({"name", "colour", "share", "spread"});
  ProjectLabel label;
  const JsonPlace name = place.required("name");
  label.name = name.text("a name");
  const bool tooLong = label.name.size() > kMaxNameBytes;
  if (label.name.empty() || tooLong || inLine(label.name) != label.name) {
    name.refuse("a name of 1 to 200 bytes in one line");
  }
  if (const auto colour = place.find("colour")) {
    label.colour = colourFromText(colour->text("a colour as \"#3070b0\""));
    if (!label.colour) colour->refuse("a colour as \"#3070b0\"");
  }
  if (const auto share = place.find("share")) readShare(*share, label);
  if (const auto spread = place.find("spread")) label.spread = readSpread(*spread);
  return label;
}

void readLabels(const JsonPlace& place, Project& project) {
  const auto items = place.items("a list of 2 to 255 labels");
  if (items.size() < 2 || items.size() > kMaxLabels) place.refuse("a list of 2 to 255 labels");
  std::set<std::string> names;
  for (const JsonPlace& item : items) {
    project.labels.push_back(readLabel(item));
    if (!names.insert(project.labels.back().name).second) {
      item.required("name").refuse("a name that no other label has");
    }
  }
}

void readShares(const JsonPlace& place, Project& project) {
  place.allow({"of", "over", "weight"});
  if (const auto of = place.find("of")) {
    project.of = of->oneOf<Project::Of>(
        {{"image", Project::Of::image}, {"foreground", Project::Of::foreground}});
  }
  if (const auto over = place.find("over")) {
    project.over = over->oneOf<Project::Over>(
        {{"picture", Project::Over::picture}, {"series", Project::Over::series}});
  }
  if (const auto weight = place.find("weight")) {
    project.weight = weight->number("a number from 0 to 1e6", 0, 1e6);
  }
}

ProjectStrokes readStrokes(const JsonPlace& place) {
  place.allow({"picture", "page", "strokes"});
  ProjectStrokes strokes;
  strokes.picture = place.required("picture").fileName();
  strokes.strokes = place.required("strokes").fileName();
  if (const auto page = place.find("page")) strokes.page = page->wholeNumber(1, 1000000000);
  return strokes;
}

InputRange readRange(const JsonPlace& place) {
  constexpr const char* kExpected = "two numbers, the lower one first";
  const auto items = place.items(kExpected);
  if (items.size() != 2) place.refuse(kExpected);
  constexpr double kMax = 3e38;
  constexpr const char* kNumber = "a number from -3e38 to 3e38";
  const InputRange range = {items[0].number(kNumber, -kMax, kMax),
                            items[1].number(kNumber, -kMax, kMax)};
  if (!(range.low < range.high)) place.refuse(kExpected);
  return range;
}

void checkVersion(const JsonPlace& root) {
  const std::size_t version = root.required(kVersionField).wholeNumber(1, 1000000000);
  if (version <= kProjectVersion) return;
  root.required(kVersionField)
      .refuse("version " + std::to_string(kProjectVersion) +
              " (a newer ratseg has written this project)");
}

Project projectFrom(const nlohmann::json& json) {
  const JsonPlace root(json, "");
  if (!json.is_object()) root.refuse("an object {...}");
  checkVersion(root);
  root.allow({kVersionField, "labels", "shares", "strokes", "model", "mix", "boundary", "tolerance",
              "range"});
  Project project;
  readLabels(root.required("labels"), project);
  if (const auto shares = root.find("shares")) readShares(*shares, project);
  if (const auto strokes = root.find("strokes")) {
    for (const JsonPlace& item : strokes->items("a list")) {
      project.strokes.push_back(readStrokes(item));
    }
  }
  if (const auto model = root.find("model")) project.model = model->fileName();
  if (const auto mix = root.find("mix")) project.mix = mix->number("a number from 0 to 1", 0, 1);
  if (const auto boundary = root.find("boundary")) {
    project.boundary = boundary->number("a number from 0 to 1e6", 0, 1e6);
  }
  if (const auto tolerance = root.find("tolerance")) {
    project.tolerance = tolerance->number("a number from 1e-6 to 1", 1e-6, 1);
  }
  if (const auto range = root.find("range")) project.range = readRange(*range);
  try {
    knownShares(project);
  } catch (const std::runtime_error& e) {
    throw ProjectError(std::string("/labels: ") + e.what());
  }
  return project;
}

bool isModelWord(const std::string& model) {
  return model == "both" || model == "colour" || model == "forest";
}

// Calls change for each name of a file.
template <class Change>
void forEachFile(Project& project, Change&& change) {
  for (ProjectStrokes& strokes : project.strokes) {
    change(strokes.picture);
    change(strokes.strokes);
  }
  if (!isModelWord(project.model)) change(project.model);
}

}  // namespace

Project parseProject(const std::string& text) { return projectFrom(parseJson(text)); }

std::string textOfProject(const Project& project) {
  nlohmann::ordered_json json;
  json[kVersionField] = kProjectVersion;
  for (const ProjectLabel& label : project.labels) {
    nlohmann::ordered_json item;
    item["name"] = label.name;
    if (label.colour) item["colour"] = textOfColour(*label.colour);
    if (label.share) item["share"] = *label.share;
    if (label.takesRest) item["share"] = "rest";
    if (label.spread) item["spread"] = *label.spread;
    json["labels"].push_back(item);
  }
  json["shares"]["of"] = project.of == Project::Of::image ? "image" : "foreground";
  if (project.over != Project::Over::automatic) {
    json["shares"]["over"] = project.over == Project::Over::series ? "series" : "picture";
  }
  json["shares"]["weight"] = project.weight;
  for (const ProjectStrokes& strokes : project.strokes) {
    nlohmann::ordered_json item;
    item["picture"] = strokes.picture;
    if (strokes.page != 1) item["page"] = strokes.page;
    item["strokes"] = strokes.strokes;
    json["strokes"].push_back(item);
  }
  json["model"] = project.model;
  if (project.mix) json["mix"] = *project.mix;
  json["boundary"] = project.boundary;
  json["tolerance"] = project.tolerance;
  if (project.range) json["range"] = {project.range->low, project.range->high};
  return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

Project loadProject(const std::string& file) {
  constexpr std::size_t kMaxBytes = std::size_t{16} << 20;
  std::string text, fault;
  if (!readSmallFile(file, kMaxBytes, text, &fault)) {
    throw ProjectError("expected a project, but found a file that " + fault);
  }
  Project project = parseProject(text);
  const std::filesystem::path folder = std::filesystem::path(file).parent_path();
  forEachFile(project, [&](std::string& name) { name = (folder / name).string(); });
  return project;
}

Project relativeToFolderOf(const std::string& file, Project project) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::absolute(file).lexically_normal().parent_path();
  forEachFile(project, [&](std::string& name) {
    const fs::path path = fs::absolute(name).lexically_normal();
    const fs::path relative = path.lexically_relative(folder);
    name = relative.empty() ? path.string() : relative.string();
  });
  return project;
}

}  // namespace namespace_ratseg
