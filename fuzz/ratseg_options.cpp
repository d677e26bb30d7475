// Words of ratseg's command line, each ended by a zero byte: readOptions.

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "app/options.h"
#include "exit_throws.h"
#include "target.h"
#include "util/cmd.h"

namespace {

using namespace namespace_ratseg;

template <class T>
void expectEcho(const std::string& out, const std::string& name, const T& value) {
  const std::string line = (std::ostringstream() << "\n-" << name << " " << value << "\n").str();
  FUZZ_EXPECT(out.find(line) != std::string::npos, "-" + name + " is echoed as it is used");
}

void expectAccepted(const Options& options, const Params& par, const std::string& out) {
  FUZZ_EXPECT(out.starts_with("Params: \n"), "the echo begins with Params:");
  FUZZ_EXPECT(par.Nsteps < std::size_t{1} << 62, "an endless run is refused");
  FUZZ_EXPECT(par.tolerance >= 0, "the tolerance is 0 or positive");
  if (par.tolerance > 0) {
    FUZZ_EXPECT(par.lambda >= 0 && par.eps > 0, "what cannot be certified is refused");
  }
  expectEcho(out, "image", options.image);
  expectEcho(out, "dataterm", options.dataterm);
  expectEcho(out, "proportions", options.proportions);
  expectEcho(out, "lambda", par.lambda);
  expectEcho(out, "mu", par.mu);
  expectEcho(out, "epsilon", par.eps);
  expectEcho(out, "iterations", par.Nsteps);
  expectEcho(out, "weightcoeff", options.weightcoeff);
  expectEcho(out, "outprefix", options.outprefix);
  expectEcho(out, "gpu", options.gpu);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::CommandLine line(fuzz::splitAtZeros({reinterpret_cast<const char*>(data), size}));
  Cmd cmd(line.argc(), line.argv(), "", nullptr, 0);
  Params par;
  const fuzz::Captured captured;
  try {
    const Options options = readOptions(cmd, par);
    expectAccepted(options, par, captured.out());
  } catch (const fuzz::Ended& ended) {
    FUZZ_EXPECT(ended.status == 1, "bad options end the process with status 1");
    FUZZ_EXPECT(fuzz::hasErrorLine(captured.out()), "an ERROR line says why");
  }
  fuzz::expectMessages(captured.err());
  return 0;
}
