#include "app/app_release_ratseg.h"

int main(int argc, char** argv) {
  auto* app = new namespace_ratseg::App_ReleaseRatSeg(argc, argv);
  delete app;
  return 0;
}
