#ifndef RATSEG_UTIL_PNG_ENCODER_H
#define RATSEG_UTIL_PNG_ENCODER_H

#include <string>

class QByteArray;
class QImage;

namespace namespace_ratseg {

// The image as the bytes of a PNG file, those that QImage::save makes of it with quality -1. False
// with the reason in error.
//
// Several threads may call it at the same time, and one that finds no memory leaves the others
// alone. (Of QImageWriter they would all wait for a lock that the one took with it.) That holds for
// images of 32 bits per pixel; others are left to Qt.
bool encodePNG(const QImage& image, QByteArray& png, std::string& error);

}  // namespace namespace_ratseg

#endif
