#ifndef RATSEG_UTIL_FILEIO_H
#define RATSEG_UTIL_FILEIO_H

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "device/types.h"

class QImage;

namespace namespace_ratseg {

class FileReplacement;

// Packed arrays and image files. Failures are reported by false; only loadArray prints (on standard
// output), and nothing throws but std::bad_alloc. File names are bytes, as the system takes them.
//
// A packed array is a gzip stream of an 8-byte little-endian element count, which is not 0, and the
// elements in the machine's own little-endian layout. Nothing in it tells the elements' type.
//
// The functions with images are in the library ratseg_image, which needs Qt; no QCoreApplication is
// needed for them.
class FileIO {
 public:
  // zlib moves less than 2^31 bytes at a time.
  static constexpr std::size_t kPieceBytes = std::size_t{1} << 30;

  // Read or write exactly len bytes, in pieces of at most pieceBytes. When that fails they close
  // file and return false.
  static bool loadGZ(gzFile file, void* dst, std::size_t len, std::size_t pieceBytes = kPieceBytes);
  static bool writeGZ(gzFile file, const void* src, std::size_t len,
                      std::size_t pieceBytes = kPieceBytes);

  // Fills the caller's array of count elements from a packed array of exactly that many. An
  // uncompressed file of the same bytes is read too. False as well where the gzip stream's checksum
  // is wrong or missing. The array's contents are undefined after a failure. Bytes behind the
  // elements are ignored; after a success *more says whether there are any, unless more is null. T
  // is float or int.
  template <class T>
  static bool loadArray(const std::string& filename, T* array, std::size_t count,
                        bool* more = nullptr);

  // The contents of a file as zlib finds them: a gzip stream, or bytes that it takes as they are.
  struct GZContents {
    bool opened = false;
    bool packed = false;      // a gzip stream
    std::size_t bytes = 0;    // unpacked ones that could be read
    std::uint64_t count = 0;  // the first eight of them
    bool cut = false;         // the stream ends before its end
    std::string error;        // what else is wrong with it, in zlib's words
  };

  // Reads the file to its end, but not more than limit bytes.
  static GZContents inspectGZ(const std::string& filename, std::size_t limit);

  // Makes count elements the new content of a file, as a packed array; level is zlib's, from 1
  // (fast) to 9 (small). False with errno. T is float or int.
  template <class T>
  static bool makeArray(FileReplacement& file, const T* array, std::size_t count, int level = 9);

  // The same for the file of that name, which it replaces. A failure leaves the old file as it was,
  // as far as file_replacement.h says, and sets *error, unless that is null, to the reason.
  template <class T>
  static bool saveArray(const std::string& filename, const T* array, std::size_t count,
                        std::string* error = nullptr);

  // Loads an image of any format that Qt reads and of any size that memory holds, from the file of
  // exactly that name, which may be a pipe; the format is found out from the file. A file that
  // lacks pixels is a failure. The caller deletes the image; a failure sets it to null, and *error,
  // unless that is null, to the reason.
  static bool loadImage(const std::string& filename, QImage*& image, std::string* error = nullptr);

  // The same as an array of w * h colour pixels. With allocate image becomes a new array, which the
  // caller deletes; otherwise it is the caller's own, of enough pixels. A failure leaves image, w
  // and h as they were; where memory is missing for the pixels of an image that Qt could decode, it
  // leaves *error empty.
  static bool loadImage(const std::string& filename, float4*& image, int& w, int& h, bool allocate,
                        std::string* error = nullptr);

  // The same through int copies of the sizes, which are written back even after a failure: sizes of
  // 2^31 and more do not survive.
  static bool loadImage(const std::string& filename, float4*& image, std::size_t& w, std::size_t& h,
                        bool allocate);

  // Makes the image the new content of a file, as PNG. False with *error, unless that is null.
  static bool makeImagePNG(FileReplacement& file, const QImage& image,
                           std::string* error = nullptr);

  // Write a PNG file, as saveArray does: an image; w * h colour pixels
  // (ImageTransforms::imageToQImage); w * h byte triples, blue first.
  static bool saveImagePNG(const QImage* image, const std::string& filename,
                           std::string* error = nullptr);
  static bool saveImagePNG(const float4* image, int w, int h, const std::string& filename,
                           std::string* error = nullptr);
  static bool saveImagePNG(const unsigned char* image, int w, int h, const std::string& filename,
                           std::string* error = nullptr);
};

}  // namespace namespace_ratseg

#endif
