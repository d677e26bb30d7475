#include "app/dataterm/dataterm_app.h"

int main(int argc, char** argv) { return namespace_ratseg::runDatatermApp(argc, argv); }
