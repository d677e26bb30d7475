// Projects: what is taken can be written and read again as the same project; what is not is refused
// in one line. The same for lists of labels.

#include <stdexcept>
#include <string>

#include "project/label_list.h"
#include "project/project_file.h"
#include "target.h"

namespace {

using namespace namespace_ratseg;

template <class Call>
bool succeeds(Call&& call) {
  try {
    call();
    return true;
  } catch (const std::runtime_error& e) {
    FUZZ_EXPECT(*e.what() != '\0', "a reason is given");
    FUZZ_EXPECT(!fuzz::hasControl(e.what()), "the reason is one line");
    return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Project project;
  if (succeeds([&] { project = parseProject(text); })) {
    FUZZ_EXPECT(parseProject(textOfProject(project)) == project, "the same when read again");
  }
  Project listed;
  if (succeeds([&] { listed.labels = parseLabelList(text); })) {
    succeeds([&] { knownShares(listed); });
  }
  return 0;
}
