// Reads projects from standard input, one to a line, and prints for each "yes", or "no" and why
// not.

#include <iostream>
#include <string>

#include "project/project_file.h"

int main() {
  for (std::string line; std::getline(std::cin, line);) {
    try {
      namespace_ratseg::parseProject(line);
      std::cout << "yes\n";
    } catch (const namespace_ratseg::ProjectError& error) {
      std::cout << "no " << error.what() << "\n";
    }
  }
}
