#include "project/project_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "project/label_list.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

const std::string kLabels = R"("labels": [{"name": "a"}, {"name": "b"}])";

std::string document(const std::string& fields) {
  return "{\"ratseg-project\": 1, " + fields + "}";
}

std::string fault(const std::string& text) {
  try {
    parseProject(text);
  } catch (const ProjectError& e) {
    return e.what();
  }
  return "";
}

Project full() {
  Project project;
  project.labels = parseLabelList("a #102030 58 +-3, b \"1\" 9%, c guess");
  project.over = Project::Over::series;
  project.strokes = {{"one.tif", 3, "strokes/one.png"}, {"two.png", 1, "two_strokes.png"}};
  project.model = "steel.model";
  project.mix = 0.25;
  project.boundary = 2.5;
  project.weight = 0.5;
  project.tolerance = 1e-4;
  project.range = {-5.5, 4095};
  return project;
}

TEST(ProjectFile, WhatIsWrittenIsReadAgain) {
  for (const Project& project : {full(), parseProject(document(kLabels))}) {
    EXPECT_EQ(parseProject(textOfProject(project)), project) << textOfProject(project);
  }
}

TEST(ProjectFile, MissingFieldsHaveTheirUsualValues) {
  const Project project = parseProject(document(kLabels));
  EXPECT_EQ(project.model, "both");
  EXPECT_EQ(project.boundary, 5);
  EXPECT_EQ(project.tolerance, 1e-3);
  EXPECT_EQ(project.of, Project::Of::image);
  EXPECT_EQ(project.over, Project::Over::automatic);
  EXPECT_FALSE(project.mix || project.range);
  EXPECT_TRUE(project.strokes.empty());
}

TEST(ProjectFile, SharesInPerCentAndWords) {
  const Project project = parseProject(document(
      R"("labels": [{"name": "a", "share": "58 %", "spread": "1.5%"},
                    {"name": "b", "share": "rest", "spread": "guess"}])"));
  EXPECT_DOUBLE_EQ(*project.labels[0].share, 0.58);
  EXPECT_DOUBLE_EQ(*project.labels[0].spread, 0.015);
  EXPECT_TRUE(project.labels[1].takesRest);
  EXPECT_DOUBLE_EQ(*project.labels[1].spread, 0.1);
}

TEST(ProjectFile, FaultsNameTheirPlace) {
  EXPECT_EQ(fault("{\n  \"ratseg-project\": 1,\n  oops\n}").substr(0, 58),
            "line 3, column 3: expected JSON, but found an error: inval");
  EXPECT_EQ(fault("[]"), "expected an object {...}, but found a list of 0");
  EXPECT_EQ(fault("{}"), "expected a field \"ratseg-project\", but found none");
  EXPECT_EQ(fault(document("\"labels\": [{\"name\": \"a\"}]")),
            "/labels: expected a list of 2 to 255 labels, but found a list of 1");
  EXPECT_EQ(fault(document(R"("labels": [{"name": "a"}, {"name": "b", "share": 2}])")),
            "/labels/1/share: expected a number from 0 to 1, \"58 %\" or \"rest\", but found 2");
  EXPECT_EQ(fault(document(R"("labels": [{"name": "a"}, {"name": "a"}])")),
            "/labels/1/name: expected a name that no other label has, but found \"a\"");
  EXPECT_EQ(fault(document(kLabels + R"(, "shares": {"of": "all"})")),
            "/shares/of: expected \"image\" or \"foreground\", but found \"all\"");
  EXPECT_EQ(fault(document(kLabels + R"(, "range": [3, 3])")),
            "/range: expected two numbers, the lower one first, but found a list of 2");
  EXPECT_EQ(fault(document(kLabels + R"(, "strokes": [{"picture": "a"}])")),
            "/strokes/0: expected a field \"strokes\", but found none");
  EXPECT_EQ(
      fault(document(R"("labels": [{"name": "a", "share": 0.5}, {"name": "b", "share": 0.4}])")),
      "/labels: expected shares that sum to 1, or a label that takes the rest, but found a sum "
      "of 0.9");
}

TEST(ProjectFile, NewerVersionsAreRefusedAndUnknownFieldsNamed) {
  EXPECT_EQ(fault("{\"ratseg-project\": 2, \"labels\": []}"),
            "/ratseg-project: expected version 1 (a newer ratseg has written this project), but "
            "found 2");
  EXPECT_EQ(fault(document(kLabels + R"(, "shares": {"a/b": 1})")),
            "/shares/a~1b: expected one of the fields of, over, weight, but found an unknown one");
  EXPECT_EQ(fault(document(kLabels + ", \"mix\": 0.1, \"mix\": 0.2")),
            "expected each field of an object once, but found \"mix\" twice");
}

TEST(ProjectFile, NamesAreRelativeToItsFolder) {
  const TempDir dir;
  std::filesystem::create_directory(dir.file("sub"));
  const std::string file = dir.file("sub/project.json");
  Project project = full();
  project.strokes = {{dir.file("one.tif"), 1, dir.file("sub/one.png")}};
  project.model = "forest";
  const Project stored = relativeToFolderOf(file, project);
  EXPECT_EQ(stored.strokes[0].picture, "../one.tif");
  EXPECT_EQ(stored.strokes[0].strokes, "one.png");
  EXPECT_EQ(stored.model, "forest");
  std::ofstream(file) << textOfProject(stored);
  const Project loaded = loadProject(file);
  EXPECT_TRUE(std::filesystem::path(loaded.strokes[0].picture).lexically_normal() ==
              std::filesystem::path(dir.file("one.tif")).lexically_normal());
}

TEST(ProjectFile, FilesThatCannotBeRead) {
  const TempDir dir;
  try {
    loadProject(dir.file("none.json"));
    FAIL();
  } catch (const ProjectError& e) {
    EXPECT_EQ(std::string(e.what()).find("expected a project, but found a file that "), 0u)
        << e.what();
  }
}

TEST(ProjectFile, DeepNestingIsRefusedLikeAnythingElse) {
  const std::string deep(200000, '[');
  EXPECT_NE(fault(deep), "");
  EXPECT_NE(fault(document("\"labels\": " + deep + std::string(200000, ']'))), "");
}

}  // namespace
}  // namespace namespace_ratseg
