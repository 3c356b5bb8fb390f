#include <avif/avif.h>

#include <utility>

#include "Platform/Imaging/Private/AnimationSource.h"
#include "Platform/Imaging/Private/ColorTransform.h"
#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/Exif.h"

namespace tavrel {
namespace {

/// AVIF pictures and sequences of them, through libavif, which decodes on from the key frame before the one asked for.
class AvifSource : public AnimationSource {
 public:
  using AnimationSource::AnimationSource;

  Expected<void> readStructure() {
    decoder_->strictFlags = AVIF_STRICT_DISABLED;
    decoder_->imageSizeLimit = kMostPixelsOfAnimation;
    if (const auto result = parse(); result != AVIF_RESULT_OK)
      return damagedPicture(name(), avifResultToString(result));
    if (auto size = setCanvasSize(decoder_->image->width, decoder_->image->height); !size) return size;
    noteProperties(*decoder_->image);
    for (int i = 0; i < decoder_->imageCount && addFrame(static_cast<std::uint32_t>(i)); ++i) continue;
    // As browsers play sequences that do not say how often.
    if (frames().size() > 1) setLoopCount(0);
    return frames().empty() ? damagedPicture(name(), "it has no frame that can be read") : Expected<void>{};
  }

  const char* type() const override { return "image/avif"; }

  Expected<std::shared_ptr<Image>> decodedImage(std::size_t index, const ImageDecoding& decoding) override {
    const bool isDeep = decoding.keepsDepth && properties(0).bitsPerComponent > 8 && count() == 1 && index == 0;
    if (!isDeep) return AnimationSource::decodedImage(index, decoding);
    const auto pixels = static_cast<std::size_t>(width()) * static_cast<std::size_t>(height());
    Data bytes(pixels * 8);
    if (const avifResult result = convert(0, 16, AVIF_RGB_FORMAT_RGBA, bytes.data()); result != AVIF_RESULT_OK)
      return damagedPicture(name(), avifResultToString(result));
    constexpr auto kLayout = ColorTransform::Layout::rgba16;
    const Data& profile = metadata().colorProfile;
    const auto transform =
        decoding.keepsColors && isProfileOfRGB(profile) ? nullptr : ColorTransform::toSRGB(profile, kLayout, kLayout);
    if (transform) transform->convert(bytes.data(), bytes.data(), pixels);
    const bool opaque = decoder_->image->alphaPlane == nullptr;
    if (!opaque) multiplyByAlphaDeep(bytes);
    return imageOfPixels(std::move(bytes), static_cast<std::size_t>(width()), true, opaque)
        ->withScaleAndOrientation(1, orientation());
  }

 private:
  struct Deleter {
    void operator()(avifDecoder* decoder) const { avifDecoderDestroy(decoder); }
  };

  avifResult parse() {
    const avifResult result = avifDecoderSetIOMemory(decoder_.get(), bytes().data(), bytes().size());
    return result == AVIF_RESULT_OK ? avifDecoderParse(decoder_.get()) : result;
  }

  bool addFrame(std::uint32_t index) {
    avifImageTiming timing{};
    if (avifDecoderNthImageTiming(decoder_.get(), index, &timing) != AVIF_RESULT_OK) return false;
    return AnimationSource::addFrame(
        {.width = width(), .height = height(), .isOpaque = true, .delay = timing.duration});
  }

  void noteProperties(const avifImage& image) {
    const auto bytesOf = [](const avifRWData& data) { return Data(data.data, data.data + data.size); };
    ImageMetadata metadata = {
        .exif = exifBlockOf(bytesOf(image.exif)), .xmp = bytesOf(image.xmp), .colorProfile = bytesOf(image.icc)};
    if (metadata.colorProfile.empty())
      metadata.colorProfile = makeColorProfile(image.colorPrimaries, image.transferCharacteristics);
    setMetadata(std::move(metadata));
    if (image.depth > 8) setBitsPerComponent(16);
    if (decoder_->imageCount == 1) setOrientation(orientationOf(image));
  }

  /// Quarter turns counter-clockwise, then a mirror; libavif leaves both to others.
  static ImageOrientation orientationOf(const avifImage& image) {
    const int turns = (image.transformFlags & AVIF_TRANSFORM_IROT) != 0 ? image.irot.angle & 3 : 0;
    const bool isMirrored = (image.transformFlags & AVIF_TRANSFORM_IMIR) != 0;
    static constexpr ImageOrientation kTurned[] = {ImageOrientation::up, ImageOrientation::left, ImageOrientation::down,
                                                   ImageOrientation::right};
    // A mirror from left to right behind a turn is one before the turn back.
    static constexpr ImageOrientation kMirrored[] = {ImageOrientation::upMirrored, ImageOrientation::rightMirrored,
                                                     ImageOrientation::downMirrored, ImageOrientation::leftMirrored};
    constexpr int kLeftToRight = 1;
    if (!isMirrored) return kTurned[turns];
    return kMirrored[image.imir.mode == kLeftToRight ? turns : (turns + 2) % 4];
  }

  avifResult convert(std::size_t index, std::uint32_t depth, avifRGBFormat format, std::uint8_t* pixels) {
    avifResult result = avifDecoderNthImage(decoder_.get(), static_cast<std::uint32_t>(index));
    if (result != AVIF_RESULT_OK) return result;
    const avifImage& image = *decoder_->image;
    // Frames of one sequence have one size.
    if (static_cast<int>(image.width) != width() || static_cast<int>(image.height) != height())
      return AVIF_RESULT_DECODE_COLOR_FAILED;
    avifRGBImage target;
    avifRGBImageSetDefaults(&target, &image);
    target.format = format;
    target.depth = depth;
    target.pixels = pixels;
    target.rowBytes = static_cast<std::uint32_t>(width()) * (depth > 8 ? 8 : 4);
    return avifImageYUVToRGB(&image, &target);
  }

  std::optional<std::string> draw(std::size_t index, Bitmap& canvas) override {
    Bitmap picture(width(), height());
    const avifResult result = convert(index, 8, AVIF_RGB_FORMAT_BGRA, picture.pixels.data());
    if (result != AVIF_RESULT_OK) return avifResultToString(result);
    convertColors(picture);
    lay(picture, frames()[index], false, canvas);
    return std::nullopt;
  }

  const std::unique_ptr<avifDecoder, Deleter> decoder_{avifDecoderCreate()};
};

}  // namespace

Expected<std::shared_ptr<ImageSource>> createAvifSource(std::shared_ptr<DataProvider> data, std::string name) {
  return createAnimation<AvifSource>(std::move(data), std::move(name));
}

}  // namespace tavrel
