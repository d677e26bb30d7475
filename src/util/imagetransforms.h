#ifndef RATSEG_UTIL_IMAGETRANSFORMS_H
#define RATSEG_UTIL_IMAGETRANSFORMS_H

#include "device/types.h"

class QImage;

namespace namespace_ratseg {

// Operations on images and conversions to and from Qt's.
//
// A colour image is a row-major array of w * h float4 pixels: x, y, z are red, green and blue in
// [0, 1]; w is ignored when read and 1 when written. The caller owns what is returned: arrays are
// from new[], Qt images from new. Sizes are trusted, and pointers may be null only where it is
// said.
//
// The functions with Qt images are in the library ratseg_image, which needs Qt.
class ImageTransforms {
 public:
  // The image as a Qt image in format ARGB32, opaque. Channels are truncated to whole 255ths and
  // clamped. An image of w x h pixels given as reuse is overwritten and returned; one of another
  // size is deleted. reuse may be null.
  static QImage* imageToQImage(const float4* image, int w, int h, QImage* reuse);

  // The same of an image of w * h byte triples, blue first.
  static QImage* imageToQImage(const unsigned char* image, int w, int h, QImage* reuse);

  // The same of a grey image of w * h values; always a new image. T is float.
  template <class T>
  static QImage* imageToQImage(const T* image, int w, int h);

  // The colours of a Qt image of any format, and its size. With allocate image becomes a new array,
  // null for an image without pixels; otherwise it is the caller's own, of enough pixels. Throws
  // std::bad_alloc, with nothing changed, when memory runs out.
  static void imageFromQImage_rgb(const QImage* qimage, float4*& image, int& w, int& h,
                                  bool allocate);

  // Weight of the length regularisation, low at edges: max(1e-15, exp(-gamma * |grad I|^power)) for
  // each pixel, in a new array of w * h. The gradient's norm is that of the forward differences of
  // all three channels, which are 0 across the right and the lower border.
  // gamma is *gamma where that is positive; otherwise (also when gamma is null) it is 2 / (power *
  // mean of |grad I|^power). The one used is stored in *gamma. An image of one colour has no mean
  // to divide by: its own gamma is infinite and its weights are NaN.
  // Results do not depend on the number of threads.
  static float* computeWeight(const float4* image, int w, int h, float power, float* gamma);

  // The same in the caller's array of w * h. T is float.
  template <class T>
  static void computeWeight(T* weight, const float4* image, int w, int h, float power,
                            float* gamma);

  // Shrinks an image by a factor (> 0) to max(floor(w / factor), 1) x max(floor(h / factor), 1)
  // pixels. A pixel is the mean of the source pixels of columns [floor(i * factor), floor((i + 1) *
  // factor)) and rows likewise; factors below 1 repeat pixels. The new size is stored in newW and
  // newH, each of which may be null. dst has room for the new image and does not overlap src.
  static void downsample(float4* dst, const float4* src, int w, int h, float factor, int* newW,
                         int* newH);

  // The same in a new array.
  static float4* downsample(const float4* src, int w, int h, float factor, int* newW, int* newH);

  // The same in place of *image, an array from new[], which is deleted.
  static void downsampleAndReplace(float4** image, int w, int h, float factor, int* newW,
                                   int* newH);

  // The direction, of length 1, in which each pixel's colour changes most: the eigenvector of the
  // larger eigenvalue of the structure tensor of the forward differences (see computeWeight). (1,
  // 0) where all directions are alike. A new array of w * h.
  static float2* computeDirections(const float4* image, int w, int h);

  // Synthetic noise. Each starts the random numbers at seed 0, so that noise can be repeated.
  // Gaussian noise of standard deviation sigma on every channel, clamped to [0, 1].
  static void addNoiseGaussian(float4* image, int w, int h, float sigma);
  // Replaces the given fraction of the pixels by random colours.
  static void addNoiseSaltPepper(float4* image, int w, int h, float fraction);
  // Replaces the given fraction of the pixels by random colours of channels 0 or 1.
  static void addNoiseSaltPepper01(float4* image, int w, int h, float fraction);
};

}  // namespace namespace_ratseg

#endif
