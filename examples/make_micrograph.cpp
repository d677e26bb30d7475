// make_micrograph FOLDER [SEED]: draws a micrograph of 640 x 480 pixels into an existing folder:
// image.png, truth.png (label numbers) and scribbles.png (label + 1), the latter two as indexed
// pictures whose colours are only for the eye. Where one of the files is another picture than the
// one that would be drawn, nothing is written: scribbles may have been drawn into it by hand.

#include <unistd.h>

#include <QImage>
#include <QtGlobal>
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "app/messages.h"
#include "app/process.h"
#include "app/result_files.h"
#include "app/usage_wanted.h"
#include "app/version/version.h"
#include "micrograph.h"
#include "util/file_replacement.h"
#include "util/fileio.h"

namespace namespace_ratseg {
namespace {

constexpr unsigned kDefaultSeed = 7;

void copyPixels(const std::vector<std::uint8_t>& pixels, QImage& image) {
  const auto w = static_cast<std::size_t>(image.width());
  for (int y = 0; y < image.height(); ++y) {
    std::memcpy(image.scanLine(y), pixels.data() + static_cast<std::size_t>(y) * w, w);
  }
}

QRgb toQRgb(const RGB& c) {
  return qRgb(static_cast<int>(c.x * 255), static_cast<int>(c.y * 255),
              static_cast<int>(c.z * 255));
}

struct Picture {
  std::string file;
  QImage image;
};

// Whether the file exists and holds anything else.
bool isOther(const Picture& picture) {
  std::error_code ignored;
  if (!std::filesystem::exists(picture.file, ignored)) return false;
  QImage* loaded = nullptr;
  FileIO::loadImage(picture.file, loaded);
  const std::unique_ptr<QImage> there(loaded);
  return !there || *there != picture.image;
}

bool saveAll(const std::vector<Picture>& pictures) {
  const auto other = std::find_if(pictures.begin(), pictures.end(), isOther);
  if (other != pictures.end()) {
    std::cerr << "ERROR: " << other->file
              << ": is another picture than the one to be drawn; nothing is written" << std::endl;
    return false;
  }
  for (const Picture& picture : pictures) removeLeftovers(picture.file);
  std::vector<std::unique_ptr<FileReplacement>> files;
  std::vector<FileReplacement*> made;
  const auto fails = [](const Picture& picture, const std::string& reason) {
    std::cerr << "ERROR: " << picture.file << ": cannot be written: " << reason << std::endl;
    return false;
  };
  for (const Picture& picture : pictures) {
    files.push_back(std::make_unique<FileReplacement>(picture.file));
    made.push_back(files.back().get());
    std::string reason;
    if (!FileIO::makeImagePNG(*made.back(), picture.image, &reason)) return fails(picture, reason);
  }
  const std::vector<int> errors = finishTogether(made);
  for (std::size_t k = 0; k < errors.size(); ++k) {
    if (errors[k] != 0) return fails(pictures[k], textOfErrno(errors[k]));
  }
  return true;
}

std::vector<Picture> picturesOf(const Micrograph& m, const std::string& folder) {
  QImage grey(m.w, m.h, QImage::Format_Grayscale8);
  copyPixels(m.grey, grey);
  QList<QRgb> labels;
  for (const RGB& c : labelColours(Micrograph::kLabels)) labels.append(toQRgb(c));
  QImage truth(m.w, m.h, QImage::Format_Indexed8);
  truth.setColorTable(labels);
  copyPixels(m.truth, truth);
  QImage scribbles(m.w, m.h, QImage::Format_Indexed8);
  labels.prepend(qRgb(0, 0, 0));
  scribbles.setColorTable(labels);
  copyPixels(m.scribbles, scribbles);
  return {{folder + "/image.png", grey},
          {folder + "/truth.png", truth},
          {folder + "/scribbles.png", scribbles}};
}

int run(int argc, char** argv) {
  if (versionWanted(argc, argv)) {
    printVersion("make_micrograph", qtVersions());
    return 0;
  }
  unsigned seed = kDefaultSeed;
  if (argc == 3) {
    const char* end = argv[2] + std::strlen(argv[2]);
    const auto [stop, error] = std::from_chars(argv[2], end, seed);
    if (error != std::errc() || stop != end) argc = 0;
  }
  if (argc != 2 && argc != 3) {
    std::cerr << "Usage: make_micrograph FOLDER [SEED]" << std::endl;
    return 1;
  }
  return saveAll(picturesOf(Micrograph::draw(640, 480, seed), argv[1])) ? 0 : 1;
}

}  // namespace
}  // namespace namespace_ratseg

int main(int argc, char** argv) {
  namespace_ratseg::prepareProcess(STDERR_FILENO);
  // What Qt says of plugins that it cannot open is not for the user.
  qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  try {
    namespace_ratseg::setProgramName("make_micrograph");
    return namespace_ratseg::run(argc, argv);
  } catch (const std::bad_alloc&) {
    namespace_ratseg::endForLackOfMemory();
  }
}
