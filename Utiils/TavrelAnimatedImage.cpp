#include "Utiils/TavrelAnimatedImage.h"

#include <typeinfo>
#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Imaging/BitmapContext.h"
#include "Platform/Imaging/ImageSource.h"
#include "TavrelBase/Log/LogCall.h"
#include "Utiils/Private/TavrelAnimatedImageShared.h"

namespace tavrel {

const double kTavrelAnimatedImageDelayTimeIntervalMinimum = 0.02;

TavrelAnimatedImage::TavrelAnimatedImage(std::shared_ptr<DataProvider> data)
    : implementation_(std::make_unique<Implementation>()) {
  implementation_->data = std::move(data);
}

TavrelAnimatedImage::~TavrelAnimatedImage() = default;

/// A field of the implementation that people may read.
#define TAVREL_READING(Type, field) \
  Type TavrelAnimatedImage::field() const { return implementation_->field; }

TAVREL_READING(const std::shared_ptr<DataProvider>&, data)
TAVREL_READING(const std::shared_ptr<Image>&, posterImage)
TAVREL_READING(std::size_t, posterImageFrameIndex)
TAVREL_READING(std::size_t, loopCount)
TAVREL_READING(std::size_t, frameCount)
TAVREL_READING(bool, predrawingEnabled)
TAVREL_READING(double, durationPerLoop)
TAVREL_READING(std::size_t, frameCacheSizeOptimal)
TAVREL_READING(std::size_t, frameCacheSizeMax)
TAVREL_READING(std::size_t, frameCacheSizeMaxInternal)
TAVREL_READING(std::size_t, memoryWarningCount)
TAVREL_READING(std::size_t, requestedFrameIndex)
TAVREL_READING(const std::set<std::size_t>&, requestedFrameIndexes)
TAVREL_READING(const FLWeakProxy<TavrelAnimatedImage>&, weakProxy)

Size TavrelAnimatedImage::size() const { return sizeForImage(implementation_->posterImage); }

const std::map<std::size_t, double>& TavrelAnimatedImage::delayTimesForIndexes() const {
  return implementation_->delayTimesForIndexes;
}

void TavrelAnimatedImage::setDurationPerLoop(double durationPerLoop) {
  if (isFinite(durationPerLoop)) implementation_->durationPerLoop = durationPerLoop;
}

void TavrelAnimatedImage::setDebugDelegate(std::weak_ptr<TavrelAnimatedImageDebugDelegate> delegate) {
  implementation_->debug_delegate = std::move(delegate);
}

Expected<std::shared_ptr<TavrelAnimatedImage>> TavrelAnimatedImage::create(Data animatedGIFData,
                                                                           std::size_t optimalFrameCacheSize,
                                                                           bool predrawingEnabled) {
  return create(DataProvider::create(std::move(animatedGIFData)), optimalFrameCacheSize, predrawingEnabled);
}

Expected<std::shared_ptr<TavrelAnimatedImage>> TavrelAnimatedImage::create() {
  const auto nothing = create(Data{});
  return animatedImageFailure(
      ImagingErrorCode::nothingGiven,
      "Use `-initWithAnimatedGIFData:` and supply the animated GIF data as an argument to initialize an object of type "
      "`TavrelAnimatedImage`.");
}

std::shared_ptr<TavrelAnimatedImage> TavrelAnimatedImage::animatedImageWithGIFData(Data data) {
  return create(std::move(data)).value_or(nullptr);
}

std::shared_ptr<Image> TavrelAnimatedImage::imageAtIndex(std::size_t index) {
  const std::shared_ptr<Image> frame = decodedFrame(index);
  return frame && implementation_->predrawingEnabled ? predrawnImageFromImage(frame) : frame;
}

std::shared_ptr<Image> TavrelAnimatedImage::decodedFrame(std::size_t index) {
  // The source composes each frame from the one before, so it serves one thread at a time.
  const std::lock_guard lock(implementation_->imageSourceMutex);
  return implementation_->imageSource->imageAtIndex(index).value_or(nullptr);
}

bool TavrelAnimatedImage::prepareJumps() {
  const std::lock_guard lock(implementation_->imageSourceMutex);
  return implementation_->imageSource->prepareJumps();
}

void TavrelAnimatedImage::giveUp() { implementation_->imageSource->giveUp(); }

Size TavrelAnimatedImage::sizeForImage(const std::any& image) {
  if (const auto* const plain = std::any_cast<std::shared_ptr<Image>>(&image); plain && *plain) {
    return {static_cast<double>((*plain)->width()), static_cast<double>((*plain)->height())};
  }
  if (const auto* const animated = std::any_cast<std::shared_ptr<TavrelAnimatedImage>>(&image); animated && *animated) {
    return (*animated)->size();
  }
  logStringFromBlock(
      [&] {
        return fmt::format("`image` isn't of expected types `UIImage` or `TavrelAnimatedImage`: {}",
                           image.has_value() ? image.type().name() : "nothing");
      },
      TavrelAnimatedImageLogLevel::error);
  return {};
}

std::shared_ptr<Image> TavrelAnimatedImage::predrawnImageFromImage(const std::shared_ptr<Image>& imageToPredraw) {
  const Image& image = *imageToPredraw;
  const AlphaInfo alpha = image.alphaInfo();
  const bool isOpaque = image.bitsPerPixel() != 32 || alpha == AlphaInfo::none || alpha == AlphaInfo::noneSkipFirst ||
                        alpha == AlphaInfo::noneSkipLast;
  const std::uint32_t layout = isOpaque ? kBitmapOpaqueBGRX : kBitmapPremultipliedBGRA;
  const std::size_t bytesPerRow = image.width() * 4;
  const bool isDrawn = image.bitsPerPixel() == 32 && image.bitmapInfo() == layout && image.bytesPerRow() == bytesPerRow;
  if (isDrawn) return imageToPredraw;

  Data pixels(bytesPerRow * image.height());
  const auto context =
      BitmapContext::create(pixels.data(), image.width(), image.height(), 8, bytesPerRow, kBitmapPremultipliedBGRA);
  if (!context) {
    logStringFromBlock(
        [&] {
          return fmt::format(
              "Failed to `CGBitmapContextCreate` with color space {} and parameters (width: {} height: {} "
              "bitsPerComponent: {} bytesPerRow: {}) for image {}",
              "device RGB", image.width(), image.height(), 8, bytesPerRow, describe(image));
        },
        TavrelAnimatedImageLogLevel::error);
    return imageToPredraw;
  }
  const Rect whole = {{}, {static_cast<double>(image.width()), static_cast<double>(image.height())}};
  context->drawImage(image, whole);
  return Image::create(image.width(), image.height(), 8, 32, bytesPerRow, layout,
                       DataProvider::create(std::move(pixels)))
      ->withScaleAndOrientation(image.scale(), image.orientation());
}

TavrelAnimatedImage::LogBlock TavrelAnimatedImage::libraryLogBlock() {
  return [](const std::string& logString, TavrelAnimatedImageLogLevel logLevel) {
    constexpr unsigned kFlags[] = {0, TavrelDDLogFlagError, TavrelDDLogFlagWarning, TavrelDDLogFlagInfo,
                                   TavrelDDLogFlagDebug};
    TAVREL_LOG(kFlags[static_cast<std::size_t>(logLevel)], "TavrelAnimatedImage", "{}", logString);
  };
}

void TavrelAnimatedImage::setLogBlock(LogBlock logBlock, TavrelAnimatedImageLogLevel logLevel) {
  const std::lock_guard lock(shared().mutex);
  shared().logBlock = std::move(logBlock);
  shared().logLevel = logLevel;
}

void TavrelAnimatedImage::logStringFromBlock(const std::function<std::string()>& stringBlock,
                                             TavrelAnimatedImageLogLevel withLevel) {
  LogBlock logBlock;
  {
    const std::lock_guard lock(shared().mutex);
    if (withLevel > shared().logLevel) return;
    logBlock = shared().logBlock;
  }
  if (logBlock && stringBlock) logBlock(stringBlock(), withLevel);
}

std::string TavrelAnimatedImage::description() const {
  return fmt::format("<TavrelAnimatedImage: {}> size={} frameCount={}", fmt::ptr(this), describe(size()),
                     implementation_->frameCount);
}

}  // namespace tavrel
