#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/BitmapInfo.h"
#include "Platform/Imaging/DataProvider.h"

namespace tavrel {

/// How the stored bitmap must be turned to be seen upright: not at all, by half a turn, by a quarter turn to the left
/// (counter-clockwise) or to the right; the mirrored ones after exchanging left and right.
enum class ImageOrientation { up, down, left, right, upMirrored, downMirrored, leftMirrored, rightMirrored };

/// A bitmap: top row first, 32-bit, 24-bit or gray pixels. Immutable; any thread.
class TAVREL_API Image {
 public:
  /// The provider must hold `bytesPerRow` × `height` bytes (the last row may end with its pixels), else there is no
  /// image. An image without pixels is allowed.
  static std::shared_ptr<Image> create(std::size_t width, std::size_t height, std::size_t bitsPerComponent,
                                       std::size_t bitsPerPixel, std::size_t bytesPerRow, std::uint32_t bitmapInfo,
                                       std::shared_ptr<DataProvider> dataProvider);
  /// The same bytes under another scale (pixels for each unit of length) and orientation.
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

/// The same picture with its orientation carried out on the pixels. An upright one is returned as it is.
TAVREL_API std::shared_ptr<Image> normalizedImage(const std::shared_ptr<Image>& image);

/// The same picture with colours that are not multiplied by alpha, for drawing that does so itself. One whose colours
/// are that already, as those of an opaque picture, is returned as it is.
TAVREL_API std::shared_ptr<Image> straightImage(const std::shared_ptr<Image>& image);

/// The same picture with colours that are multiplied by alpha, for what mixes pixels. One whose colours are that
/// already, and an opaque one, is returned as it is.
TAVREL_API std::shared_ptr<Image> premultipliedImage(const std::shared_ptr<Image>& image);

}  // namespace tavrel
