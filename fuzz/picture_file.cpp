// Picture files of any format (the first byte: plain_png.h): FileIO::loadImage and Picture.

#include <QImage>
#include <QtGlobal>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "plain_png.h"
#include "target.h"
#include "util/fileio.h"
#include "util/pictures/complaints.h"
#include "util/pictures/picture.h"
#include "util/rgb.h"

using namespace namespace_ratseg;

namespace {

// Larger pictures would only take time.
constexpr std::uint64_t kMostPixels = 1 << 16;

// Pixels of 8 bits per channel are the same, whatever they were loaded as.
void expectPixels(const QImage& image, const RGB* pixels) {
  switch (image.format()) {
    case QImage::Format_RGB32:
    case QImage::Format_ARGB32:
    case QImage::Format_Indexed8:
    case QImage::Format_Grayscale8:
      break;
    default:
      return;
  }
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x, ++pixels) {
      const QRgb c = image.pixel(x, y);
      const auto is = [](float value, int byte) { return value == static_cast<float>(byte) / 255; };
      FUZZ_EXPECT(is(pixels->x, qRed(c)) && is(pixels->y, qGreen(c)) && is(pixels->z, qBlue(c)),
                  "colours are 255ths");
    }
  }
}

// A folder in memory where there is one: files take the place of others there, which files without
// a folder cannot.
class Folder {
 public:
  Folder() {
    for (std::string place : {"/dev/shm/fuzz-XXXXXX", "/tmp/fuzz-XXXXXX"}) {
      if (mkdtemp(place.data()) == nullptr) continue;
      path_ = place;
      return;
    }
    std::abort();
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

void expectRoundTrip(const QImage& image) {
  static const Folder folder;
  const std::string file = folder.file("saved.png");
  const QImage opaque = image.convertToFormat(QImage::Format_RGB32);
  FUZZ_EXPECT(FileIO::saveImagePNG(&opaque, file), "a picture is saved");
  QImage* loaded = nullptr;
  FUZZ_EXPECT(FileIO::loadImage(file, loaded), "a saved picture loads");
  const std::unique_ptr<QImage> again(loaded);
  FUZZ_EXPECT(again->convertToFormat(QImage::Format_RGB32) == opaque, "and is the same");
}

void expectFailure(const std::string& path, const std::string& error) {
  FUZZ_EXPECT(!error.empty(), "a failure has a reason");
  RGB* pixels = nullptr;
  int w = -3, h = -4;
  FUZZ_EXPECT(!FileIO::loadImage(path, pixels, w, h, true), "what fails once fails twice");
  FUZZ_EXPECT(pixels == nullptr && w == -3 && h == -4, "a failure changes nothing");
}

void expectSuccess(const std::string& path, const QImage& image, const Picture& picture) {
  FUZZ_EXPECT(picture.formatIsKnown(), "what loads has a known format");
  FUZZ_EXPECT(picture.wholeness().error.empty(), "what loads is whole");
  RGB* pixels = nullptr;
  int w = 0, h = 0;
  FUZZ_EXPECT(FileIO::loadImage(path, pixels, w, h, true), "what loads once loads twice");
  const std::unique_ptr<RGB[]> owner(pixels);
  FUZZ_EXPECT(w == image.width() && h == image.height(), "the sizes agree");
  for (qint64 k = 0; k < qint64{w} * h; ++k) {
    const auto in = [](float value) { return value >= 0 && value <= 1; };
    FUZZ_EXPECT(in(pixels[k].x) && in(pixels[k].y) && in(pixels[k].z), "colours are from 0 to 1");
  }
  expectPixels(image, pixels);
  expectRoundTrip(image);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::MemoryFile disk;
  const std::string file = fuzz::pictureOf({reinterpret_cast<const char*>(data), size});
  disk.write(file);
  // What decoders say is not to be seen.
  const Complaints complaints;
  const Picture picture(file, disk.path());
  if (picture.w() * picture.h() > kMostPixels) return 0;
  const Wholeness whole = picture.wholeness();
  FUZZ_EXPECT(!fuzz::hasControl(whole.error + whole.warning), "what is said of it is a line");
  const auto plain = fuzz::plainPicture(file);
  if (plain && plain->plain && plain->w > 0 && plain->h > 0) {
    FUZZ_EXPECT(whole.error.empty(), "a picture with all pixels is whole");
  }
  QImage* loaded = nullptr;
  std::string error;
  const bool ok = FileIO::loadImage(disk.path(), loaded, &error);
  const std::unique_ptr<QImage> image(loaded);
  FUZZ_EXPECT(ok == (image != nullptr), "there is an image where loading succeeds");
  if (!ok) {
    expectFailure(disk.path(), error);
  } else if (std::uint64_t(image->width()) * image->height() <= kMostPixels) {
    expectSuccess(disk.path(), *image, picture);
  }
  return 0;
}
