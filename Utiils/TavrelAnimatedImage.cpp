#include "Utiils/TavrelAnimatedImage.h"

#include <typeinfo>
#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Imaging/BitmapContext.h"
#include "Platform/Imaging/ImageSource.h"
#include "Utiils/Private/TavrelAnimatedImageShared.h"

namespace tavrel {

const double kTavrelAnimatedImageDelayTimeIntervalMinimum = 0.02;

TavrelAnimatedImage::TavrelAnimatedImage(std::shared_ptr<DataProvider> data)
    : implementation_(std::make_unique<Implementation>()) {
  implementation_->data = std::move(data);
}

TavrelAnimatedImage::~TavrelAnimatedImage() = default;

const std::shared_ptr<DataProvider>& TavrelAnimatedImage::data() const {
  return implementation_->data;
}

const std::shared_ptr<Image>& TavrelAnimatedImage::posterImage() const {
  return implementation_->posterImage;
}

std::size_t TavrelAnimatedImage::posterImageFrameIndex() const {
  return implementation_->posterImageFrameIndex;
}

Size TavrelAnimatedImage::size() const {
  return sizeForImage(implementation_->posterImage);
}

std::size_t TavrelAnimatedImage::loopCount() const {
  return implementation_->loopCount;
}

const std::map<std::size_t, double>& TavrelAnimatedImage::delayTimesForIndexes() const {
  return implementation_->delayTimesForIndexes;
}

std::size_t TavrelAnimatedImage::frameCount() const {
  return implementation_->frameCount;
}

bool TavrelAnimatedImage::predrawingEnabled() const {
  return implementation_->predrawingEnabled;
}

double TavrelAnimatedImage::durationPerLoop() const {
  return implementation_->durationPerLoop;
}

void TavrelAnimatedImage::setDurationPerLoop(double durationPerLoop) {
  implementation_->durationPerLoop = durationPerLoop;
}

std::size_t TavrelAnimatedImage::frameCacheSizeOptimal() const {
  return implementation_->frameCacheSizeOptimal;
}

std::size_t TavrelAnimatedImage::frameCacheSizeMax() const {
  return implementation_->frameCacheSizeMax;
}

std::size_t TavrelAnimatedImage::frameCacheSizeMaxInternal() const {
  return implementation_->frameCacheSizeMaxInternal;
}

std::size_t TavrelAnimatedImage::memoryWarningCount() const {
  return implementation_->memoryWarningCount;
}

std::size_t TavrelAnimatedImage::requestedFrameIndex() const {
  return implementation_->requestedFrameIndex;
}

const std::set<std::size_t>& TavrelAnimatedImage::requestedFrameIndexes() const {
  return implementation_->requestedFrameIndexes;
}

const FLWeakProxy<TavrelAnimatedImage>& TavrelAnimatedImage::weakProxy() const {
  return implementation_->weakProxy;
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

std::string TavrelAnimatedImage::description() const {
  return fmt::format("<TavrelAnimatedImage: {}> size={} frameCount={}", fmt::ptr(this), describe(size()),
                     implementation_->frameCount);
}

}  // namespace tavrel
