#include "util/same_file.h"

#include <filesystem>
#include <system_error>

namespace namespace_ratseg {

namespace {

namespace fs = std::filesystem;

// The path at which a file of this name would be created: follows links that lead nowhere, too.
fs::path written(const std::string& name) {
  constexpr int kMaxLinks = 40;  // as many as the system follows
  std::error_code ignored;
  fs::path path = fs::absolute(name, ignored);
  for (int i = 0; i < kMaxLinks; ++i) {
    path = fs::weakly_canonical(path.parent_path(), ignored) / path.filename();
    const fs::path target = fs::read_symlink(path, ignored);
    if (target.empty()) break;
    path = path.parent_path() / target;  // an absolute target alone
  }
  return path.lexically_normal();
}

}  // namespace

bool sameFile(const std::string& a, const std::string& b) {
  if (a.empty() || b.empty()) return false;
  std::error_code missing;
  if (fs::equivalent(a, b, missing)) return true;
  return written(a) == written(b);
}

}  // namespace namespace_ratseg
