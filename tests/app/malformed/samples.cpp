#include "app/malformed/samples.h"

#include <cstdio>
// Needs the one above it.
#include <jpeglib.h>

#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <QImageWriter>
#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "app/dataterm/raw_png.h"

namespace namespace_ratseg {

namespace {

using raw_pictures::BMP;
using raw_pictures::Example;
using raw_pictures::GIF;

const Example kColours, kTwo = {24, 17, 2}, kSquare = {32, 32, 6};

QImage image(const Example& picture) {
  QImage result(picture.w, picture.h, QImage::Format_RGB32);
  for (int y = 0; y < picture.h; ++y) {
    for (int x = 0; x < picture.w; ++x) {
      const std::string c = Example::colour(picture.number(x, y));
      const auto part = [&c](std::size_t k) { return static_cast<unsigned char>(c[k]); };
      result.setPixel(x, y, qRgb(part(2), part(1), part(0)));
    }
  }
  return result;
}

std::string fromQt(const char* format, const Example& picture = kColours, int compression = -1) {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  QImageWriter writer(&buffer, format);
  writer.setQuality(100);
  writer.setCompression(compression);
  if (!writer.write(image(picture))) throw std::runtime_error(format);
  return bytes.toStdString();
}

struct JPEG {
  int components = 3;
  bool progressive = false;
  unsigned restarts = 0;  // blocks between two of them

  std::string bytes() const {
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* memory = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &memory, &size);
    info.image_width = static_cast<JDIMENSION>(kColours.w);
    info.image_height = static_cast<JDIMENSION>(kColours.h);
    info.input_components = components;
    info.in_color_space = components == 1 ? JCS_GRAYSCALE : components == 3 ? JCS_RGB : JCS_CMYK;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, 90, TRUE);
    info.restart_interval = restarts;
    if (progressive) jpeg_simple_progression(&info);
    jpeg_start_compress(&info, TRUE);
    for (int y = 0; y < kColours.h; ++y) {
      std::string row;
      for (int x = 0; x < kColours.w; ++x) {
        row += (Example::colour(kColours.number(x, y)) + '\x20').substr(0, info.input_components);
      }
      JSAMPROW rows[1] = {reinterpret_cast<JSAMPROW>(row.data())};
      jpeg_write_scanlines(&info, rows, 1);
    }
    jpeg_finish_compress(&info);
    const std::string result(reinterpret_cast<char*>(memory), size);
    jpeg_destroy_compress(&info);
    std::free(memory);
    return result;
  }
};

// Indexed, interlaced or not.
std::string png(bool interlaced) {
  std::string rows, palette;
  for (int y = 0; y < kColours.h; ++y) {
    for (int x = 0; x < kColours.w; ++x) rows += static_cast<char>(kColours.number(x, y));
  }
  for (unsigned k = 0; k < kColours.colours; ++k) {
    const std::string c = Example::colour(k);
    palette += {c[2], c[1], c[0]};
  }
  return RawPng{kColours.w, kColours.h, 8, RawPng::kIndexed, rows, palette, "", interlaced}.bytes();
}

std::string textPNM(bool bitmap) {
  const Example& picture = bitmap ? kTwo : kColours;
  std::string text = std::string(bitmap ? "P1" : "P3") + "\n# numbers as text\n24 17\n";
  if (!bitmap) text += "255\n";
  for (int y = 0; y < picture.h; ++y) {
    for (int x = 0; x < picture.w; ++x) {
      const std::string c = Example::colour(picture.number(x, y));
      const auto part = [&c](std::size_t k) {
        return std::to_string(static_cast<unsigned char>(c[k])) + " ";
      };
      text += bitmap ? std::to_string(1 - picture.number(x, y)) + " " : part(2) + part(1) + part(0);
    }
    text += "\n";
  }
  return text;
}

}  // namespace

std::vector<Sample> samples() {
  const std::string icon = BMP{.bits = 24}.inIcon();
  return {
      {"colour.png", fromQt("PNG"), kColours},
      {"indexed.png", png(false), kColours},
      {"interlaced.png", png(true), kColours},
      {"colour.jpg", JPEG{}.bytes(), kColours},
      {"restarts.jpg", JPEG{.restarts = 2}.bytes(), kColours},
      {"progressive.jpg", JPEG{.progressive = true}.bytes(), kColours},
      {"grey.jpg", JPEG{.components = 1}.bytes(), kColours},
      {"cmyk.jpg", JPEG{.components = 4}.bytes(), kColours},
      {"one.gif", GIF{}.bytes(), kColours},
      {"interlaced.gif", GIF{.interlaced = true, .localPalette = true}.bytes(), kColours},
      {"animated.gif", GIF{.frames = 2, .extension = true}.bytes(), kColours},
      {"24.bmp", BMP{.bits = 24}.bytes(), kColours},
      {"32.bmp", BMP{.bits = 32, .headerLength = 108}.bytes(), kColours},
      {"down.bmp", BMP{.bits = 24, .headerLength = 124, .topDown = true, .gap = 8}.bytes(),
       kColours},
      {"8.bmp", BMP{.bits = 8}.bytes(), kColours},
      {"os2.bmp", BMP{.bits = 8, .headerLength = 12}.bytes(), kColours},
      {"4.bmp", BMP{.bits = 4, .paletteColours = 6}.bytes(), kColours},
      {"1.bmp", BMP{.picture = kTwo, .bits = 1}.bytes(), kTwo},
      {"rle8.bmp", BMP{.bits = 8, .runs = true, .paletteColours = 6}.bytes(), kColours},
      {"rle4.bmp", BMP{.bits = 4, .runs = true, .paletteColours = 6}.bytes(), kColours},
      {"dib.ico", raw_pictures::ico({icon}), kColours},
      {"png.ico", raw_pictures::ico({fromQt("PNG")}), kColours},
      {"two.ico", raw_pictures::ico({icon, fromQt("PNG")}), kColours},
      {"strips.tif", raw_pictures::tiff(), kColours},
      {"plain.tif", fromQt("TIFF", kColours, 0), kColours},
      {"lzw.tif", fromQt("TIFF", kColours, 1), kColours},
      {"colour.ppm", fromQt("PPM"), kColours},
      {"two.pbm", fromQt("PBM", kTwo), kTwo},
      {"text.ppm", textPNM(false), kColours},
      {"text.pbm", textPNM(true), kTwo},
      {"colour.xpm", fromQt("XPM"), kColours},
      {"two.xbm", fromQt("XBM", kTwo), kTwo},
      {"colour.webp", fromQt("WEBP"), kColours},
      {"colour.tga", raw_pictures::tga(), kColours},
      {"colour.icns", fromQt("ICNS", kSquare), kSquare},
      {"two.wbmp", fromQt("WBMP", kTwo), kTwo},
  };
}

Sample sample(const std::string& name) {
  for (const Sample& each : samples()) {
    if (each.name == name) return each;
  }
  throw std::runtime_error("no sample " + name);
}

std::string decodedByLibjpeg(const std::string& jpeg) {
  jpeg_decompress_struct info{};
  jpeg_error_mgr errors{};
  info.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, reinterpret_cast<const unsigned char*>(jpeg.data()), jpeg.size());
  jpeg_read_header(&info, TRUE);
  info.out_color_space = JCS_RGB;
  jpeg_start_decompress(&info);
  const std::size_t rowBytes = 3 * static_cast<std::size_t>(info.output_width);
  std::string pixels(rowBytes * info.output_height, '\0');
  while (info.output_scanline < info.output_height) {
    JSAMPROW rows[1] = {
        reinterpret_cast<JSAMPROW>(pixels.data() + rowBytes * info.output_scanline)};
    jpeg_read_scanlines(&info, rows, 1);
  }
  jpeg_destroy_decompress(&info);
  return pixels;
}

}  // namespace namespace_ratseg
