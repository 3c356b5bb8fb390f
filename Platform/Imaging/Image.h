#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/BitmapInfo.h"
#include "Platform/Imaging/DataProvider.h"

namespace tavrel {

/// How to rotate the stored bitmap upright: `up` not at all, `down` by 180°, `left` by 90° counter-clockwise, `right`
/// by 90° clockwise. The mirrored ones first swap left and right.
enum class ImageOrientation { up, down, left, right, upMirrored, downMirrored, leftMirrored, rightMirrored };

/// A bitmap of 64-bit (`kBitmapPremultipliedRGBA16`), 32-bit, 24-bit or grey pixels, top row first. Immutable; any
/// thread.
class TAVREL_API Image {
 public:
  /// nullptr unless the provider holds `bytesPerRow` × `height` bytes; the last row needs no padding. An image may be
  /// empty.
  static std::shared_ptr<Image> create(std::size_t width, std::size_t height, std::size_t bitsPerComponent,
                                       std::size_t bitsPerPixel, std::size_t bytesPerRow, std::uint32_t bitmapInfo,
                                       std::shared_ptr<DataProvider> dataProvider);
  /// The same bytes with another scale (pixels per point) and orientation. A scale that is not finite or not positive
  /// is ignored.
  std::shared_ptr<Image> withScaleAndOrientation(double scale, ImageOrientation orientation) const;

  std::size_t width() const { return width_; }
  std::size_t height() const { return height_; }
  std::size_t bitsPerComponent() const { return bitsPerComponent_; }
  std::size_t bitsPerPixel() const { return bitsPerPixel_; }
  std::size_t bytesPerRow() const { return bytesPerRow_; }
  std::uint32_t bitmapInfo() const { return bitmapInfo_; }
  AlphaInfo alphaInfo() const { return static_cast<AlphaInfo>(bitmapInfo_ & kBitmapAlphaInfoMask); }
  const std::shared_ptr<DataProvider>& dataProvider() const { return dataProvider_; }
  double scale() const { return scale_; }
  ImageOrientation orientation() const { return orientation_; }

 private:
  Image() = default;
  Image(const Image&) = default;

  std::size_t width_ = 0;
  std::size_t height_ = 0;
  std::size_t bitsPerComponent_ = 0;
  std::size_t bitsPerPixel_ = 0;
  std::size_t bytesPerRow_ = 0;
  std::uint32_t bitmapInfo_ = 0;
  std::shared_ptr<DataProvider> dataProvider_;
  double scale_ = 1;
  ImageOrientation orientation_ = ImageOrientation::up;
};

/// The image with its pixels rotated upright. An upright image is returned unchanged.
TAVREL_API std::shared_ptr<Image> normalizedImage(const std::shared_ptr<Image>& image);

/// The image with straight (not premultiplied) colours. An image that has no premultiplied alpha is returned unchanged.
TAVREL_API std::shared_ptr<Image> straightImage(const std::shared_ptr<Image>& image);

/// The image with premultiplied colours, for blending. A premultiplied or opaque image is returned unchanged.
TAVREL_API std::shared_ptr<Image> premultipliedImage(const std::shared_ptr<Image>& image);
/// The same as `kBitmapPremultipliedRGBA16`, from which straight colours of 8 bits can be had again without a loss.
TAVREL_API std::shared_ptr<Image> deepPremultipliedImage(const std::shared_ptr<Image>& image);

}  // namespace tavrel
