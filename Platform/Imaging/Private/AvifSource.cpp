#include <avif/avif.h>

#include <utility>

#include "Platform/Imaging/Private/AnimationSource.h"
#include "Platform/Imaging/Private/Decoders.h"

namespace tavrel {
namespace {

/// AVIF pictures and sequences of them, through libavif, which decodes on from the key frame before the one asked for.
class AvifSource : public AnimationSource {
 public:
  using AnimationSource::AnimationSource;

  Expected<void> readStructure() {
    decoder_->ignoreExif = decoder_->ignoreXMP = AVIF_TRUE;
    decoder_->strictFlags = AVIF_STRICT_DISABLED;
    decoder_->imageSizeLimit = kMostPixelsOfAnimation;
    if (const auto result = parse(); result != AVIF_RESULT_OK)
      return damagedPicture(name(), avifResultToString(result));
    if (auto size = setCanvasSize(decoder_->image->width, decoder_->image->height); !size) return size;
    for (int i = 0; i < decoder_->imageCount && addFrame(static_cast<std::uint32_t>(i)); ++i) continue;
    // As browsers play sequences that do not say how often.
    if (frames().size() > 1) setLoopCount(0);
    return frames().empty() ? damagedPicture(name(), "it has no frame that can be read") : Expected<void>{};
  }

  const char* type() const override { return "image/avif"; }

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

  std::optional<std::string> draw(std::size_t index, Bitmap& canvas) override {
    avifResult result = avifDecoderNthImage(decoder_.get(), static_cast<std::uint32_t>(index));
    if (result != AVIF_RESULT_OK) return avifResultToString(result);
    const avifImage& image = *decoder_->image;
    if (static_cast<int>(image.width) != width() || static_cast<int>(image.height) != height())
      return "its frames have different sizes";
    Bitmap picture(width(), height());
    avifRGBImage target;
    avifRGBImageSetDefaults(&target, &image);
    target.format = AVIF_RGB_FORMAT_BGRA;
    target.depth = 8;
    target.pixels = picture.pixels.data();
    target.rowBytes = static_cast<std::uint32_t>(picture.bytesPerRow());
    result = avifImageYUVToRGB(&image, &target);
    if (result != AVIF_RESULT_OK) return avifResultToString(result);
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
