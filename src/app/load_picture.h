#ifndef RATSEG_APP_LOAD_PICTURE_H
#define RATSEG_APP_LOAD_PICTURE_H

// The image of a run, as both programs load it.

#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "util/rgb.h"

namespace namespace_ratseg {

struct Image {
  std::unique_ptr<RGB[]> pixels;  // row-major, w * h
  int w = 0;
  int h = 0;

  std::size_t count() const { return static_cast<std::size_t>(w) * static_cast<std::size_t>(h); }
};

// "640 x 480 pixels", and with a number of labels " x 3 labels" behind it.
std::string sizeText(std::size_t w, std::size_t h);
std::string sizeText(std::size_t w, std::size_t h, std::size_t labels);

// Limits of the size of a picture.
struct PictureLimits {
  double megapixels = 150;  // -max-megapixels
  double gib = 0;           // -max-memory; 0: what the system has available

  // Bytes that may be used; infinite where the system does not say what it has available.
  double bytes() const;
};

// Bytes that a picture of so many pixels takes while it is loaded, beside its file.
double bytesToLoad(double pixels);

// The reason why a picture cannot be loaded. what() continues a sentence after the file's name or
// after "a file that": "ends early: 12 of 30 rows are there".
class PictureError : public std::runtime_error {
 public:
  enum class Kind {
    unreadable,     // what() is the system's reason alone
    unknownFormat,  // of none that Qt reads
    unusable,
  };
  PictureError(Kind k, const std::string& reason) : std::runtime_error(reason), kind(k) {}
  const Kind kind;
};

// Throws PictureError where a picture of w x h pixels is beyond the limits: too many pixels, or
// more memory than bytesPerPixel for each of them (as bytesToLoad() where that is 0).
void checkPictureSize(std::size_t w, std::size_t h, const PictureLimits& limits,
                      double bytesPerPixel = 0);

// The bytes of a picture file, as loadPicture reads them. Throws PictureError.
std::string readPictureFile(const std::string& file, const PictureLimits& limits);

// Decodes the bytes of such a file as loadPicture does. With turn, an image that asks to be shown
// turned or mirrored is.
Image decodePicture(std::string bytes, const std::string& file, const PictureLimits& limits,
                    const std::function<void(const std::string&)>& warn, bool turn = false);

// Loads the image from the file of exactly that name, which is opened once and may be a pipe.
// Throws PictureError. Calls warn for each property of the image that may surprise the user, with
// words that continue a line after the file's name.
Image loadPicture(const std::string& file, const PictureLimits& limits,
                  const std::function<void(const std::string&)>& warn);

}  // namespace namespace_ratseg

#endif
