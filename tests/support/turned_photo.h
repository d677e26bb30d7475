#ifndef RATSEG_TESTS_SUPPORT_TURNED_PHOTO_H
#define RATSEG_TESTS_SUPPORT_TURNED_PHOTO_H

// A JPEG file whose EXIF entry "orientation" asks viewers to turn it, as cameras write it.

#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <fstream>
#include <stdexcept>
#include <string>

// Orientation 1 is upright, 6 a quarter turn to the right.
inline void saveTurnedPhoto(const QImage& image, const std::string& file, char orientation = 6) {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  if (!buffer.open(QIODevice::WriteOnly) || !image.save(&buffer, "JPG", 95)) {
    throw std::runtime_error("cannot write a JPEG");
  }
  // One directory of one entry: tag 0x112, a short, once; no directory follows.
  std::string tiff("II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0", 18);
  tiff += {orientation, 0, 0, 0, 0, 0, 0, 0};
  const std::string body = std::string("Exif\0\0", 6) + tiff;
  std::string segment = "\xFF\xE1";
  segment += {0, static_cast<char>(body.size() + 2)};
  const std::string jpeg = bytes.toStdString();
  std::ofstream(file, std::ios::binary) << jpeg.substr(0, 2) << segment << body << jpeg.substr(2);
}

#endif
