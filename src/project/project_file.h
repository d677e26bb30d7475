#ifndef RATSEG_PROJECT_PROJECT_FILE_H
#define RATSEG_PROJECT_PROJECT_FILE_H

// Projects as JSON; project.schema.json beside this header describes the form.

#include <stdexcept>
#include <string>

#include "project/project.h"

namespace namespace_ratseg {

inline constexpr int kProjectVersion = 1;

// A text that is no project. what() names the place, what was expected there and what was found, in
// one line: "line 3, column 7: ..." for text that is not JSON, "/labels/1/share: ..." (RFC 6901)
// for the rest.
class ProjectError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// File names are given back as they stand. Throws ProjectError, also for newer versions, unknown
// fields, fields that come twice, and shares that knownShares() refuses.
Project parseProject(const std::string& text);

// The project's JSON, with a line end behind it: parseProject() gives the same project back.
std::string textOfProject(const Project& project);

// Reads a project's file, of at most 16 MiB. Relative names in it are taken relative to its folder.
// Throws ProjectError, with words that continue a line after the file's name and a colon.
Project loadProject(const std::string& file);

// The same project with the names of its files relative to the folder of the project's file, as far
// as they are on the same file system tree; to be saved there.
Project relativeToFolderOf(const std::string& file, Project project);

}  // namespace namespace_ratseg

#endif
