#include <unistd.h>

#include "app/dataterm/dataterm_app.h"
#include "app/process.h"

int main(int argc, char** argv) {
  namespace_ratseg::prepareProcess(STDERR_FILENO);
  return namespace_ratseg::runDatatermApp(argc, argv);
}
