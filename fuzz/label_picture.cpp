// Pictures of marks or labels, PNG (the first byte: plain_png.h) or TIFF: LabelPicture::load.

#include "app/dataterm/label_picture.h"

#include <algorithm>

#include "app/dataterm/input_error.h"
#include "plain_png.h"
#include "target.h"

using namespace namespace_ratseg;

namespace {

// warned says whether it was warned of.
std::optional<LabelPicture> load(const std::string& file, bool& warned) {
  static const fuzz::MemoryFile disk;
  disk.write(file);
  try {
    LabelPicture::Hooks hooks;
    hooks.warn = [&warned](const std::string& line) {
      warned = true;
      FUZZ_EXPECT(!fuzz::hasControl(line), "a warning is one line without control characters");
    };
    hooks.checkSize = [](std::size_t w, std::size_t h) {
      if (w * h > 1 << 16) throw InputError("picture", "a small one", "a large one");
    };
    return LabelPicture::load(disk.path(), hooks);
  } catch (const InputError& error) {
    FUZZ_EXPECT(!fuzz::hasControl(error.what()), "an error is one line without control characters");
    return {};
  }
}

// Whether a picture has a palette as it must be, and no number beyond it.
bool fitsPalette(const fuzz::PlainPicture& picture, const std::string& file) {
  if (picture.colourType == 0) return true;
  const std::size_t bytes = fuzz::chunksOf(file)[1].data.size();
  if (bytes == 0 || bytes % 3 != 0 || bytes / 3 > 1u << picture.bits) return false;
  return *std::max_element(picture.pixels.begin(), picture.pixels.end()) < bytes / 3;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file = fuzz::pictureOf({reinterpret_cast<const char*>(data), size});
  if (fuzz::announcedPixels(file) > std::uint64_t{1} << 16) return 0;
  bool warned = false;
  const std::optional<LabelPicture> got = load(file, warned);
  const std::optional<fuzz::PlainPicture> plain = fuzz::plainPicture(file);
  const bool interlaced = file.size() > 28 && file[28] != 0;
  // TIFF files and 16-bit PNG files, of which there is no plain reading here.
  const bool other = !file.starts_with(fuzz::kPngSignature) || (file.size() > 24 && file[24] == 16);
  if (got) {
    FUZZ_EXPECT(got->pixels.size() == got->w * got->h && got->w > 0 && got->h > 0,
                "there is a number for each pixel");
    FUZZ_EXPECT(plain.has_value() || interlaced || other,
                "only pictures with all pixels are accepted");
    std::size_t counted = 0;
    for (std::size_t k : got->histogram()) counted += k;
    FUZZ_EXPECT(counted == got->pixels.size(), "the histogram counts each pixel once");
  }
  if (got && plain) {
    FUZZ_EXPECT(got->w == plain->w && got->h == plain->h, "the size is that of the file");
    FUZZ_EXPECT(got->pixels == plain->pixels, "the numbers are those of the file");
    FUZZ_EXPECT(plain->right || warned, "what is wrong with a picture is said");
  }
  if (plain && plain->plain && plain->w > 0 && plain->h > 0) {
    FUZZ_EXPECT(got || !fitsPalette(*plain, file), "a whole picture is accepted");
  }
  return 0;
}
