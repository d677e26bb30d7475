// The bytes of an option file: Cmd::parseFile.

#include "options_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::MemoryFile file;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  file.write(text);
  namespace_ratseg::Cmd cmd;
  FUZZ_EXPECT(cmd.parseFile(file.path(), nullptr, 0), "a file that opens is read");
  FUZZ_EXPECT(cmd.values == fuzz::modelOfFile(text), "the options are those of the lines");
  fuzz::expectRoundTrip(cmd);
  return 0;
}
