#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/Image.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel {

/// An image of more pixels than a process should hold (`ImageSource::kMostPixels`), with four bytes each, or eight of
/// 16-bit components. The pixels live in an unnamed file in the folder that TMPDIR names, else in /var/tmp; the image's
/// bytes map it, so that only pages in use occupy memory, until `rest`. PNG only, through libpng. One thread at a time.
class TAVREL_API LargeImage {
 public:
  /// Transparent black, without padding. `bitmapInfo` is that of `Image`. Fails ("posix") when there is no room for it.
  static Expected<LargeImage> create(std::size_t width, std::size_t height, std::uint32_t bitmapInfo);
  /// Decodes to `kBitmapOpaqueBGRX` or `kBitmapPremultipliedBGRA`, as `ImageSource` does. Fails if the file is no PNG
  /// (`ImagingErrorCode::unknownFormat`), is interlaced (`pictureTooLarge`) or damaged (`damagedPicture`), and
  /// ("posix") with the system's reason.
  static Expected<LargeImage> read(const std::filesystem::path& path, const ImageDecoding& decoding = {});
  /// Replaces the file only when the new one is complete; otherwise like `ImageDestination::write`.
  Expected<void> write(const std::filesystem::path& path, const ImageEncoding& encoding = {}) const;

  const std::shared_ptr<Image>& image() const { return image_; }
  /// Of the file that was read.
  const ImageMetadata& metadata() const { return metadata_; }
  std::uint8_t* row(std::size_t number) const { return pixels_ + number * image_->bytesPerRow(); }
  /// Gives the pages' memory back to the system. Pixels, and pointers to them, remain valid.
  void rest() const;

 private:
  LargeImage(std::shared_ptr<Image> image, std::uint8_t* pixels) : image_(std::move(image)), pixels_(pixels) {}

  std::shared_ptr<Image> image_;
  ImageMetadata metadata_;
  std::uint8_t* pixels_;
};

}  // namespace tavrel
