#include <unistd.h>

#include "app/app_release_ratseg.h"
#include "app/process.h"

int main(int argc, char** argv) {
  namespace_ratseg::prepareProcess(STDOUT_FILENO);
  auto* app = new namespace_ratseg::App_ReleaseRatSeg(argc, argv);
  delete app;
  return 0;
}
