#include "Platform/Imaging/Image.h"

#include <libyuv/planar_functions.h>
#include <libyuv/rotate_argb.h>

#include <cstring>
#include <utility>

#include "Platform/Foundation/Finite.h"
#include "Platform/Imaging/Private/PixelConversion.h"

namespace tavrel {
namespace {

libyuv::RotationMode rotationFor(ImageOrientation orientation) {
  switch (orientation) {
    case ImageOrientation::down:
    case ImageOrientation::downMirrored: return libyuv::kRotate180;
    case ImageOrientation::left:
    case ImageOrientation::leftMirrored: return libyuv::kRotate270;
    case ImageOrientation::right:
    case ImageOrientation::rightMirrored: return libyuv::kRotate90;
    default: return libyuv::kRotate0;
  }
}

bool isMirrored(ImageOrientation orientation) { return orientation >= ImageOrientation::upMirrored; }

/// Of 16 bits for each component, which libyuv does not turn.
std::shared_ptr<Image> turnedDeep(const Image& image) {
  const ImageOrientation orientation = image.orientation();
  const std::size_t width = image.width();
  const std::size_t height = image.height();
  const libyuv::RotationMode rotation = rotationFor(orientation);
  const bool isSideways = rotation == libyuv::kRotate90 || rotation == libyuv::kRotate270;
  const std::size_t targetWidth = isSideways ? height : width;
  Data pixels(width * height * 8);
  for (std::size_t y = 0; y < height; ++y) {
    const std::uint8_t* const row = image.dataProvider()->bytes().data() + y * image.bytesPerRow();
    for (std::size_t x = 0; x < width; ++x) {
      const std::size_t column = isMirrored(orientation) ? width - 1 - x : x;
      std::size_t place = y * targetWidth + column;
      if (rotation == libyuv::kRotate90) place = column * targetWidth + height - 1 - y;
      if (rotation == libyuv::kRotate180) place = (height - 1 - y) * targetWidth + width - 1 - column;
      if (rotation == libyuv::kRotate270) place = (width - 1 - column) * targetWidth + y;
      std::memcpy(pixels.data() + place * 8, row + x * 8, 8);
    }
  }
  return imageOfPixels(std::move(pixels), targetWidth, true, isOpaque(image));
}

}  // namespace

std::shared_ptr<Image> Image::create(std::size_t width, std::size_t height, std::size_t bitsPerComponent,
                                     std::size_t bitsPerPixel, std::size_t bytesPerRow, std::uint32_t bitmapInfo,
                                     std::shared_ptr<DataProvider> dataProvider) {
  const std::size_t rowBytes = (width * bitsPerPixel + 7) / 8;
  const std::size_t needed = width == 0 || height == 0 ? 0 : bytesPerRow * (height - 1) + rowBytes;
  if (!dataProvider || bytesPerRow < rowBytes || dataProvider->bytes().size() < needed) return nullptr;
  std::shared_ptr<Image> image(new Image);
  image->width_ = width;
  image->height_ = height;
  image->bitsPerComponent_ = bitsPerComponent;
  image->bitsPerPixel_ = bitsPerPixel;
  image->bytesPerRow_ = bytesPerRow;
  image->bitmapInfo_ = bitmapInfo;
  image->dataProvider_ = std::move(dataProvider);
  return image;
}

std::shared_ptr<Image> Image::withScaleAndOrientation(double scale, ImageOrientation orientation) const {
  std::shared_ptr<Image> image(new Image(*this));
  if (isFinite(scale) && scale > 0) image->scale_ = scale;
  image->orientation_ = orientation;
  return image;
}

std::shared_ptr<Image> normalizedImage(const std::shared_ptr<Image>& image) {
  if (image->orientation() == ImageOrientation::up) return image;
  if (isDeep(*image)) return turnedDeep(*image);
  const Bitmap source = premultipliedBGRA(*image);
  const int width = source.width;
  const int height = source.height;
  const libyuv::RotationMode rotation = rotationFor(image->orientation());
  const bool isSideways = rotation == libyuv::kRotate90 || rotation == libyuv::kRotate270;

  Bitmap turned(isSideways ? height : width, isSideways ? width : height);
  if (isMirrored(image->orientation())) {
    Bitmap mirrored(width, height);
    libyuv::ARGBMirror(source.pixels.data(), source.bytesPerRow(), mirrored.pixels.data(), mirrored.bytesPerRow(),
                       width, height);
    libyuv::ARGBRotate(mirrored.pixels.data(), mirrored.bytesPerRow(), turned.pixels.data(), turned.bytesPerRow(),
                       width, height, rotation);
  } else {
    libyuv::ARGBRotate(source.pixels.data(), source.bytesPerRow(), turned.pixels.data(), turned.bytesPerRow(), width,
                       height, rotation);
  }
  return imageOf(std::move(turned), isOpaque(*image));
}

std::shared_ptr<Image> straightImage(const std::shared_ptr<Image>& image) {
  const AlphaInfo alpha = image->alphaInfo();
  const bool isMultiplied = alpha == AlphaInfo::premultipliedFirst || alpha == AlphaInfo::premultipliedLast;
  if (image->bitsPerPixel() != 32 || !isMultiplied) return image;
  Bitmap straight = straightRGBA(*image);
  return Image::create(image->width(), image->height(), 8, 32, image->width() * 4,
                       tavrel::bitmapInfo(kBitmapByteOrderDefault, AlphaInfo::last),
                       DataProvider::create(std::move(straight.pixels)))
      ->withScaleAndOrientation(image->scale(), image->orientation());
}

std::shared_ptr<Image> premultipliedImage(const std::shared_ptr<Image>& image) {
  if (!isStraight(*image)) return image;
  return imageOf(premultipliedBGRA(*image), false)->withScaleAndOrientation(image->scale(), image->orientation());
}

std::shared_ptr<Image> deepPremultipliedImage(const std::shared_ptr<Image>& image) {
  if (!isStraight(*image)) return image;
  return imageOfPixels(premultipliedRGBA16(*image), image->width(), true, false)
      ->withScaleAndOrientation(image->scale(), image->orientation());
}

}  // namespace tavrel
