#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/Image.h"
#include "Platform/Imaging/ImageMetadata.h"

namespace tavrel {

/// Properties of one image of a file.
struct ImageProperties {
  std::size_t width = 0;
  std::size_t height = 0;
  std::size_t bitsPerComponent = 8;  ///< as stored: 8, or 16 for what is more
  ImageOrientation orientation = ImageOrientation::up;
  /// Delay of a frame in seconds, as stored.
  std::optional<double> unclampedDelayTime;
  /// The same, with delays below 0.05 s, which mean "as fast as possible", replaced by 0.1 s.
  std::optional<double> delayTime;
};

/// What a decoded image keeps of its file.
struct ImageDecoding {
  /// 16 bits for each component where the file has more than 8; see `kBitmapPremultipliedRGBA16`.
  bool keepsDepth = false;
  /// The values as stored, in the colour space of `ImageMetadata::colorProfile`, instead of sRGB; for RGB pixels with a
  /// profile of RGB.
  bool keepsColors = false;
  /// Straight 8-bit colours of a transparent PNG, TIFF or HEIC, which premultiplying would round; not with
  /// `keepsDepth`.
  bool keepsStraight = false;
};

/// Decodes PNG, JPEG, GIF, WebP, AVIF, TIFF and HEIC files, detected by content, through libpng, libjpeg-turbo, giflib,
/// libwebp, libavif, libtiff and libheif; the last four are optional (`TAVREL_WITH_WEBP`, `TAVREL_WITH_AVIF`,
/// `TAVREL_WITH_TIFF`, `TAVREL_WITH_HEIF`). Of several pictures in a TIFF or HEIC that are no animation it is the first
/// or main one.
///
/// Colours are converted to sRGB from what the file says that they are (an ICC profile; for PNG one of the chunks cICP,
/// iCCP, sRGB, gAMA and cHRM, in this order), through little-cms2. Without a word they are sRGB, at any depth.
///
/// Opaque images have the layout `kBitmapOpaqueBGRX`, others `kBitmapPremultipliedBGRA`; the GPU takes both. Frames of
/// an animation are composed as in browsers: of the animation's size, drawn over the frames before, starting from
/// transparent; "restore to background" restores transparency. Of a truncated GIF frame the intact part is shown.
/// Frames are decoded on demand, from checkpoints of at most 128 MB in total; otherwise a source holds at most three
/// decoded images. One thread at a time.
class TAVREL_API ImageSource {
 public:
  /// Maximum number of pixels; a larger image fails before memory is allocated.
  static constexpr std::size_t kMostPixels = std::size_t{1} << 28;
  /// Maximum number of pixels of an animation, and of each of its frames.
  static constexpr std::size_t kMostPixelsOfAnimation = std::size_t{1} << 26;
  /// Maximum sum of the stored pixels of an animation's frames; frames beyond are left out.
  static constexpr std::size_t kMostPixelsOfAnimationFrames = std::size_t{1} << 30;
  /// Maximum sum of the composed pixels of an animation's frames; frames beyond are left out.
  static constexpr std::size_t kMostPixelsOfAnimationPictures = std::size_t{1} << 32;

  /// Reads the header. Fails if the format is not known (`ImagingErrorCode::unknownFormat`) or the image is damaged
  /// (`damagedPicture`), empty (`noPixels`) or too large (`pictureTooLarge`). `name` identifies it in errors.
  static Expected<std::shared_ptr<ImageSource>> create(Data data, std::string name = "the data");
  /// The same for shared bytes.
  static Expected<std::shared_ptr<ImageSource>> create(std::shared_ptr<DataProvider> data,
                                                       std::string name = "the data");
  /// The same for a file; also fails with the system's error ("posix") if it cannot be read.
  static Expected<std::shared_ptr<ImageSource>> createWithFile(const std::filesystem::path& path);

  virtual ~ImageSource() = default;

  /// "image/png", "image/apng" for an animated one, "image/jpeg", "image/gif", "image/webp", "image/avif",
  /// "image/tiff" or "image/heic".
  virtual const char* type() const = 0;
  /// Number of images; for a truncated file, those before the cut. A counted image may still turn out to be damaged.
  virtual std::size_t count() const { return 1; }
  /// False if it is known without decoding that the image holds nothing readable.
  virtual bool holdsPicture(std::size_t index) const { return index < count(); }
  /// How often an animation plays; 0 loops for ever, nothing if the file does not say.
  virtual std::optional<int> loopCount() const { return std::nullopt; }
  /// Fails if there is no such image (`noSuchPicture`) or nothing of it can be read (`damagedPicture`). Reading an
  /// animation's frames in order is fastest.
  virtual Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) = 0;
  /// The same, keeping what `ImageDecoding` asks for, as far as the format has it.
  virtual Expected<std::shared_ptr<Image>> decodedImage(std::size_t index, const ImageDecoding&) {
    return imageAtIndex(index);
  }
  /// All empty if there is no such image.
  virtual ImageProperties properties(std::size_t index) const = 0;
  /// Of the file as a whole.
  virtual ImageMetadata metadata() const { return {}; }
  /// Decodes a few more frames to create checkpoints, which make random access to an animation fast and are also
  /// created by `imageAtIndex`. False if there are enough.
  virtual bool prepareJumps() { return false; }
  /// Makes an `imageAtIndex` of an animation that is in progress, and all later ones, fail soon (`givenUp`). Any
  /// thread.
  virtual void giveUp() {}
};

}  // namespace tavrel
