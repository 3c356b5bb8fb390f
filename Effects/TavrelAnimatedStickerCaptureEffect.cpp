#include "Effects/TavrelAnimatedStickerCaptureEffect.h"

#include <utility>

#include "Effects/Private/StickerTimeline.h"
#include "GPUImage/Filters/TavrelGPUImageAlphaBlendFilter.h"
#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Imaging/ImageSource.h"
#include "Platform/Imaging/ImagingError.h"
#include "TavrelBase/Utils/TavrelUtils.h"
#include "Utiils/TavrelAnimatedImage.h"

namespace tavrel {
namespace {

/// Upright, and with colours that the blend filter can multiply by alpha itself.
Expected<std::shared_ptr<Image>> loadImage(const std::filesystem::path& path) {
  return ImageSource::createWithFile(path)
      .and_then([](const std::shared_ptr<ImageSource>& source) { return source->imageAtIndex(0); })
      .map([](const std::shared_ptr<Image>& image) { return straightImage(normalizedImage(image)); });
}

}  // namespace

/// What an effect is made from.
struct TavrelAnimatedStickerCaptureEffect::Source {
  std::shared_ptr<TavrelAnimatedImage> animatedImage;
  std::vector<std::filesystem::path> imagePaths;
  float interval = 0;
  std::shared_ptr<Image> posterImage;
};

Expected<std::shared_ptr<TavrelAnimatedStickerCaptureEffect>> TavrelAnimatedStickerCaptureEffect::create(Data gifData) {
  auto image = TavrelAnimatedImage::create(std::move(gifData));
  if (!image) return tl::unexpected(image.error());
  Source source = {.animatedImage = *image, .imagePaths = {}, .posterImage = (*image)->posterImage()};
  return std::shared_ptr<TavrelAnimatedStickerCaptureEffect>(new TavrelAnimatedStickerCaptureEffect(std::move(source)));
}

Expected<std::shared_ptr<TavrelAnimatedStickerCaptureEffect>> TavrelAnimatedStickerCaptureEffect::create(
    std::vector<std::filesystem::path> imagePaths, float interval) {
  if (imagePaths.empty())
    return failure(ImagingErrorCode::nothingGiven, "an animated sticker needs at least one picture");
  auto poster = loadImage(imagePaths.front());
  if (!poster) return tl::unexpected(poster.error());
  Source source = {.animatedImage = nullptr,
                   .imagePaths = std::move(imagePaths),
                   .interval = interval,
                   .posterImage = std::move(*poster)};
  return std::shared_ptr<TavrelAnimatedStickerCaptureEffect>(new TavrelAnimatedStickerCaptureEffect(std::move(source)));
}

TavrelAnimatedStickerCaptureEffect::TavrelAnimatedStickerCaptureEffect(Source source)
    : gifData_(source.animatedImage ? source.animatedImage->data() : nullptr),
      imagePaths_(std::move(source.imagePaths)),
      interval_(source.interval),
      animatedImage(std::move(source.animatedImage)),
      posterImage(std::move(source.posterImage)) {
  commonInit();
}

// Placement and loop count are not copied; that is how a copy has always been.
TavrelAnimatedStickerCaptureEffect::TavrelAnimatedStickerCaptureEffect(const TavrelAnimatedStickerCaptureEffect& source)
    : TavrelObject(source),
      TavrelCaptureEffect(source),
      gifData_(source.gifData_),
      imagePaths_(source.imagePaths_),
      interval_(source.interval_) {
  if (gifData_) {
    animatedImage = TavrelAnimatedImage::create(gifData_).value_or(source.animatedImage);
    posterImage = animatedImage->posterImage();
  } else {
    // A file that has gone since is still known to the source.
    posterImage = loadImage(imagePaths_.front()).value_or(source.posterImage);
  }
  commonInit();
}

TavrelAnimatedStickerCaptureEffect::~TavrelAnimatedStickerCaptureEffect() = default;

std::shared_ptr<TavrelCaptureEffect> TavrelAnimatedStickerCaptureEffect::copy() const {
  return std::make_shared<TavrelAnimatedStickerCaptureEffect>(*this);
}

void TavrelAnimatedStickerCaptureEffect::commonInit() {
  picture_ = std::make_shared<TavrelGPUImagePicture>(posterImage);
  transformFilter = std::make_shared<TavrelGPUImagePlacementFilter>();
  alphaBlendFilter = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  alphaBlendFilter->setMix(1.0);
  picture_->addTarget(transformFilter);
  transformFilter->addTarget(alphaBlendFilter, 1);
  startTimestamp_ = -1;
}

std::shared_ptr<TavrelGPUImageFilter> TavrelAnimatedStickerCaptureEffect::filter() const {
  return alphaBlendFilter;
}

Size TavrelAnimatedStickerCaptureEffect::size() const {
  return TavrelAnimatedImage::sizeForImage(posterImage);
}

void TavrelAnimatedStickerCaptureEffect::setVideoSize(Size videoSize) {
  changeValue(videoSize_, videoSize, "videoSize");
  transformFilter->setAffineTransform(TavrelGetTransform(destRect_, videoSize_, static_cast<float>(rotation_)));
  transformFilter->forceProcessingAtSize(videoSize_);
}

bool TavrelAnimatedStickerCaptureEffect::refreshPictureWithTimestamp(double timestamp) {
  if (startTimestamp_ < 0) setStartTimestamp(timestamp);
  const double elapsed = timestamp - startTimestamp_;
  const std::size_t frameCount = animatedImage ? animatedImage->frameCount() : imagePaths_.size();
  std::size_t loopLimit = animatedImage ? animatedImage->loopCount() : 0;
  if (loopCount_ > 0) loopLimit = static_cast<std::size_t>(loopCount_);

  const StickerMoment moment =
      animatedImage ? stickerMoment(elapsed, animatedImage->durationPerLoop(), animatedImage->delayTimesForIndexes())
                    : stickerMoment(elapsed, interval_, imagePaths_.size());
  if (moment.frameIndex == currentFrameIndex) return false;
  const bool isPlayedOut =
      loopLimit > 0 && moment.frameIndex == frameCount - 1 && moment.completedLoops == static_cast<double>(loopLimit);
  if (isPlayedOut) return false;
  currentFrameIndex = moment.frameIndex;
  const std::shared_ptr<Image> image = imageAtIndex(moment.frameIndex);
  if (!image) return false;
  // On the queue as a whole: a pass that is under way must not lose the texture.
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { picture_->updateWithCGImage(image); });
  return true;
}

TavrelCaptureEffectNodes TavrelAnimatedStickerCaptureEffect::makeNodes(Size frameSize) {
  setVideoSize(frameSize);
  return {.filters = {filter()}, .pictures = {picture_}};
}

std::shared_ptr<PixelBuffer> TavrelAnimatedStickerCaptureEffect::prepareFrame(
    const std::shared_ptr<PixelBuffer>& pixelBuffer, const SampleTiming&, MediaTime frameTime) {
  if (frameTime.isNumeric() && refreshPictureWithTimestamp(frameTime.seconds())) picture_->processImage();
  return pixelBuffer;
}

std::shared_ptr<Image> TavrelAnimatedStickerCaptureEffect::imageAtIndex(std::size_t index) const {
  if (animatedImage) return animatedImage->imageAtIndex(index);
  return loadImage(imagePaths_.at(index)).value_or(nullptr);
}

}  // namespace tavrel
