// Words of ratseg-dataterm's command line, each ended by a zero byte: DatatermOptions::parse.

#include "app/dataterm/options.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "app/dataterm/input_error.h"
#include "target.h"

using namespace namespace_ratseg;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::CommandLine line(fuzz::splitAtZeros({reinterpret_cast<const char*>(data), size}));
  try {
    const DatatermOptions o = DatatermOptions::parse(line.argc(), line.argv());
    const FileOptions& f = o.files;
    FUZZ_EXPECT(!o.image.empty() && (f.listColours || !o.out.empty()), "what is required is there");
    const bool sources[] = {!o.scribbles.empty(), !f.costs.empty(), !f.probabilities.empty(),
                            !f.convert.empty()};
    FUZZ_EXPECT(std::count(std::begin(sources), std::end(sources), true) == 1,
                "there is one source of labels");
    FUZZ_EXPECT(f.range.size() % 2 == 0, "ranges are pairs");
    for (std::size_t k = 0; k + 1 < f.range.size(); k += 2) {
      FUZZ_EXPECT(f.range[k] < f.range[k + 1], "a range is not empty");
    }
    FUZZ_EXPECT(o.sigma > 0 && std::isfinite(o.sigma), "-sigma is positive");
    FUZZ_EXPECT(o.thr > 0 && std::isfinite(o.voidCost()), "-thr is positive, a void cost finite");
    FUZZ_EXPECT(o.spread >= 0 && std::isfinite(static_cast<float>(o.spread)),
                "-spread is 0 or positive");
    FUZZ_EXPECT(o.truth.empty() == o.proportions.empty(), "-truth and -proportions go together");
  } catch (const InputError& error) {
    FUZZ_EXPECT(!fuzz::hasControl(error.what()), "an error is one line without control characters");
  }
  return 0;
}
