#include <QtGlobal>

#include "app/version/version.h"

namespace namespace_ratseg {

std::string qtVersions() {
  return std::string("built with ") + QT_VERSION_STR + ", runs with " + qVersion();
}

}  // namespace namespace_ratseg
