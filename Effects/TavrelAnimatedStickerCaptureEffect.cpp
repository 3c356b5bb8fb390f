#include "Effects/TavrelAnimatedStickerCaptureEffect.h"

#include <atomic>
#include <cmath>
#include <utility>

#include "Effects/Private/StickerFrames.h"
#include "Effects/Private/StickerReduction.h"
#include "Effects/Private/StickerTimeline.h"
#include "GPUImage/Filters/TavrelGPUImageAlphaBlendFilter.h"
#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Imaging/ImageSource.h"
#include "Platform/Imaging/ImagingError.h"
#include "TavrelBase/Utils/TavrelUtils.h"
#include "Utiils/TavrelAnimatedImage.h"

namespace tavrel {
namespace {

/// Upright, and with colours multiplied by alpha, as the placement filter wants them.
Expected<std::shared_ptr<Image>> loadImage(const std::filesystem::path& path) {
  return ImageSource::createWithFile(path)
      .and_then([](const std::shared_ptr<ImageSource>& source) { return source->imageAtIndex(0); })
      .map([](const std::shared_ptr<Image>& image) { return premultipliedImage(normalizedImage(image)); });
}

}  // namespace

/// What is played, and the nodes that draw it.
struct TavrelAnimatedStickerCaptureEffect::Implementation {
  explicit Implementation(const std::shared_ptr<TavrelAnimatedImage>& gif)
      : animatedImage(gif), posterImage(gif->posterImage()) {
    commonInit();
  }
  Implementation(std::vector<std::filesystem::path> paths, float seconds, std::shared_ptr<Image> poster)
      : imagePaths(std::move(paths)), interval(seconds), posterImage(std::move(poster)) {
    commonInit();
  }
  ~Implementation() {
    if (animatedImage) animatedImage->giveUp();
  }

  /// The same animation, at its start.
  std::unique_ptr<Implementation> anew() const {
    if (animatedImage) {
      return std::make_unique<Implementation>(TavrelAnimatedImage::create(animatedImage->data()).value());
    }
    // A file that has gone since is still known here.
    return std::make_unique<Implementation>(imagePaths, interval, loadImage(imagePaths.front()).value_or(posterImage));
  }
  void commonInit() {
    picture = std::make_shared<TavrelGPUImagePicture>(posterImage);
    transformFilter = std::make_shared<TavrelGPUImagePlacementFilter>();
    alphaBlendFilter = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
    alphaBlendFilter->setMix(1.0);
    picture->addTarget(transformFilter);
    transformFilter->addTarget(alphaBlendFilter, 1);
  }
  std::shared_ptr<Image> imageAtIndex(std::size_t index) const {
    if (animatedImage) return animatedImage->imageAtIndex(index);
    return loadImage(imagePaths.at(index)).value_or(nullptr);
  }
  std::size_t frameCount() const { return animatedImage ? animatedImage->frameCount() : imagePaths.size(); }

  /// What is decoded and reduced by another thread, from the first call on and anew for another size on the frame.
  StickerFrames& readyFrames() {
    const StickerReduction wanted = wantedReduction;
    if (frames && wanted == reduction) return *frames;
    isPlacedAnew = frames != nullptr;
    reduction = wanted;
    if (animatedImage) {
      frames = StickerFrames::create(
          {.count = frameCount(),
           .ahead = animatedImage->frameCacheSizeOptimal(),
           .frame = [gif = animatedImage, wanted](std::size_t i) { return reduced(gif->imageAtIndex(i), wanted); },
           .prepareJumps = [gif = animatedImage] { return gif->prepareJumps(); }});
    } else {
      frames = StickerFrames::create(
          {.count = frameCount(),
           .ahead = 1,
           .frame = [paths = imagePaths,
                     wanted](std::size_t i) { return reduced(loadImage(paths[i]).value_or(nullptr), wanted); },
           .prepareJumps = [] { return false; }});
    }
    return *frames;
  }

  std::shared_ptr<TavrelAnimatedImage> animatedImage;
  std::vector<std::filesystem::path> imagePaths;
  float interval = 0;
  std::shared_ptr<Image> posterImage;
  std::shared_ptr<TavrelGPUImagePicture> picture;
  std::shared_ptr<TavrelGPUImagePlacementFilter> transformFilter;
  std::shared_ptr<TavrelGPUImageAlphaBlendFilter> alphaBlendFilter;
  std::atomic<std::int64_t> loopCount = 0;
  std::atomic<double> startTimestamp = -1;
  Rect destRect;
  double rotation = 0;
  Size videoSize;
  std::size_t currentFrameIndex = 0;
  std::atomic<bool> waitsForPictures = false;
  std::atomic<StickerReduction> wantedReduction = {};
  StickerReduction reduction;
  bool isPlacedAnew = false;  // the picture has been reduced for another size
  std::shared_ptr<StickerFrames> frames;
};

Expected<std::shared_ptr<TavrelAnimatedStickerCaptureEffect>> TavrelAnimatedStickerCaptureEffect::create(Data gifData) {
  return TavrelAnimatedImage::create(std::move(gifData)).map([](const auto& image) {
    return std::shared_ptr<TavrelAnimatedStickerCaptureEffect>(
        new TavrelAnimatedStickerCaptureEffect(std::make_unique<Implementation>(image)));
  });
}

Expected<std::shared_ptr<TavrelAnimatedStickerCaptureEffect>> TavrelAnimatedStickerCaptureEffect::create(
    std::vector<std::filesystem::path> imagePaths, float interval) {
  if (imagePaths.empty())
    return failure(ImagingErrorCode::nothingGiven, "an animated sticker needs at least one picture");
  return loadImage(imagePaths.front()).map([&](const std::shared_ptr<Image>& poster) {
    return std::shared_ptr<TavrelAnimatedStickerCaptureEffect>(new TavrelAnimatedStickerCaptureEffect(
        std::make_unique<Implementation>(std::move(imagePaths), interval, poster)));
  });
}

TavrelAnimatedStickerCaptureEffect::TavrelAnimatedStickerCaptureEffect(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

// Placement and loop count are not copied; that is how a copy has always been.
TavrelAnimatedStickerCaptureEffect::TavrelAnimatedStickerCaptureEffect(const TavrelAnimatedStickerCaptureEffect& source)
    : TavrelCaptureEffect(source), implementation_(source.implementation_->anew()) {}

TavrelAnimatedStickerCaptureEffect::~TavrelAnimatedStickerCaptureEffect() = default;

std::shared_ptr<TavrelCaptureEffect> TavrelAnimatedStickerCaptureEffect::copy() const {
  return std::shared_ptr<TavrelCaptureEffect>(new TavrelAnimatedStickerCaptureEffect(*this));
}

std::shared_ptr<DataProvider> TavrelAnimatedStickerCaptureEffect::gifData() const {
  return implementation_->animatedImage ? implementation_->animatedImage->data() : nullptr;
}

const std::vector<std::filesystem::path>& TavrelAnimatedStickerCaptureEffect::imagePaths() const {
  return implementation_->imagePaths;
}

float TavrelAnimatedStickerCaptureEffect::interval() const { return implementation_->interval; }

const std::shared_ptr<TavrelGPUImagePicture>& TavrelAnimatedStickerCaptureEffect::picture() const {
  return implementation_->picture;
}

std::shared_ptr<TavrelGPUImageFilter> TavrelAnimatedStickerCaptureEffect::filter() const {
  return implementation_->alphaBlendFilter;
}

Size TavrelAnimatedStickerCaptureEffect::size() const {
  return TavrelAnimatedImage::sizeForImage(implementation_->posterImage);
}

std::int64_t TavrelAnimatedStickerCaptureEffect::loopCount() const { return implementation_->loopCount; }

void TavrelAnimatedStickerCaptureEffect::setLoopCount(std::int64_t loopCount) {
  changeValue(implementation_->loopCount, loopCount, "loopCount");
}

const Rect& TavrelAnimatedStickerCaptureEffect::destRect() const { return implementation_->destRect; }

void TavrelAnimatedStickerCaptureEffect::setDestRect(const Rect& destRect) {
  if (isFinite(destRect)) changeValue(implementation_->destRect, destRect, "destRect");
}

double TavrelAnimatedStickerCaptureEffect::rotation() const { return implementation_->rotation; }

void TavrelAnimatedStickerCaptureEffect::setRotation(double rotation) {
  if (isFinite(rotation)) changeValue(implementation_->rotation, rotation, "rotation");
}

double TavrelAnimatedStickerCaptureEffect::startTimestamp() const { return implementation_->startTimestamp; }

void TavrelAnimatedStickerCaptureEffect::setStartTimestamp(double startTimestamp) {
  if (isFinite(startTimestamp)) changeValue(implementation_->startTimestamp, startTimestamp, "startTimestamp");
}

Size TavrelAnimatedStickerCaptureEffect::videoSize() const { return implementation_->videoSize; }

void TavrelAnimatedStickerCaptureEffect::setVideoSize(Size videoSize) {
  if (!isFinite(videoSize)) return;
  changeValue(implementation_->videoSize, videoSize, "videoSize");
  implementation_->wantedReduction = stickerReduction(size(), destRect().size);
  TavrelGPUImagePlacementFilter& placement = *implementation_->transformFilter;
  placement.setAffineTransform(TavrelGetTransform(destRect(), videoSize, static_cast<float>(rotation())));
  placement.forceProcessingAtSize(videoSize);
}

std::optional<std::size_t> TavrelAnimatedStickerCaptureEffect::frameDueAt(double timestamp) {
  if (!std::isfinite(timestamp)) return std::nullopt;
  if (startTimestamp() < 0) setStartTimestamp(timestamp);
  const double elapsed = timestamp - startTimestamp();
  const Implementation& own = *implementation_;
  const TavrelAnimatedImage* const gif = own.animatedImage.get();
  const std::size_t frameCount = own.frameCount();
  const std::int64_t wishedLoops = loopCount();
  std::size_t loopLimit = gif ? gif->loopCount() : 0;
  if (wishedLoops > 0) loopLimit = static_cast<std::size_t>(wishedLoops);

  const StickerMoment moment = gif ? stickerMoment(elapsed, gif->durationPerLoop(), gif->delayTimesForIndexes())
                                   : stickerMoment(elapsed, own.interval, frameCount);
  if (moment.frameIndex == own.currentFrameIndex) return std::nullopt;
  const bool isPlayedOut =
      loopLimit > 0 && moment.frameIndex == frameCount - 1 && moment.completedLoops == static_cast<double>(loopLimit);
  if (isPlayedOut) return std::nullopt;
  return moment.frameIndex;
}

bool TavrelAnimatedStickerCaptureEffect::refreshPictureWithTimestamp(double timestamp) {
  const std::optional<std::size_t> due = frameDueAt(timestamp);
  if (!due) return false;
  Implementation& own = *implementation_;
  own.currentFrameIndex = *due;
  const std::shared_ptr<Image> image = own.imageAtIndex(*due);
  if (!image) return false;
  own.picture->updateWithCGImage(image);
  return true;
}

void TavrelAnimatedStickerCaptureEffect::setWaitsForPictures(bool waits) { implementation_->waitsForPictures = waits; }

TavrelCaptureEffectNodes TavrelAnimatedStickerCaptureEffect::makeNodes(Size frameSize) {
  setVideoSize(frameSize);
  return {.filters = {filter()}, .pictures = {picture()}};
}

TavrelCaptureEffectPart TavrelAnimatedStickerCaptureEffect::onPart(const Rect& input, Size) const {
  const std::shared_ptr<TavrelAnimatedStickerCaptureEffect> moved(new TavrelAnimatedStickerCaptureEffect(*this));
  const Rect& whole = destRect();
  moved->setDestRect({{whole.origin.x - input.origin.x, whole.origin.y - input.origin.y}, whole.size});
  moved->setRotation(rotation());
  return {moved, input};
}

std::shared_ptr<PixelBuffer> TavrelAnimatedStickerCaptureEffect::prepareFrame(
    const std::shared_ptr<PixelBuffer>& pixelBuffer, const SampleTiming&, MediaTime frameTime) {
  if (!frameTime.isNumeric()) return pixelBuffer;
  if (!implementation_->waitsForPictures) {
    showReadyFrame(frameTime.seconds());
  } else if (refreshPictureWithTimestamp(frameTime.seconds())) {
    picture()->processImage();
  }
  return pixelBuffer;
}

void TavrelAnimatedStickerCaptureEffect::showReadyFrame(double timestamp) {
  Implementation& own = *implementation_;
  StickerFrames& frames = own.readyFrames();
  const std::optional<std::size_t> due = frameDueAt(timestamp);
  if (!due && !own.isPlacedAnew) return frames.stayAt(own.currentFrameIndex);
  const std::size_t wanted = due.value_or(own.currentFrameIndex);
  const auto ready = frames.newest(wanted, own.isPlacedAnew ? (wanted + 1) % own.frameCount() : own.currentFrameIndex);
  if (!ready) return;
  own.isPlacedAnew = false;
  own.currentFrameIndex = ready->index;
  if (!ready->image) return;
  TavrelRunAsynchronouslyOnVideoProcessingQueue([picture = own.picture, image = ready->image] {
    picture->updateWithCGImage(image);
    picture->processImage();
  });
}

}  // namespace tavrel
