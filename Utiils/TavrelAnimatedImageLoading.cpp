#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Imaging/ImageSource.h"
#include "Platform/Media/MoviePictures.h"
#include "Utiils/Private/TavrelAnimatedImageShared.h"

namespace tavrel {
namespace {

using Level = TavrelAnimatedImageLogLevel;

constexpr double kDelayTimeIntervalDefault = 0.1;

/// Frames up to this many megabytes are all kept, up to the next limit a few, beyond it only the one being shown.
constexpr double kDataSizeOfAllFrames = 10;
constexpr double kDataSizeOfDefault = 75;
constexpr std::size_t kFrameCacheSizeDefault = 5;
constexpr std::size_t kFrameCacheSizeLowMemory = 1;

template <typename... Args>
void info(fmt::format_string<Args...> format, const Args&... args) {
  TavrelAnimatedImage::logStringFromBlock(
      [&] { return fmt::vformat(fmt::string_view(format), fmt::make_format_args(args...)); }, Level::info);
}

std::string describe(const ImageSource& source) {
  return fmt::format("<ImageSource {}, {} frames>", source.type(), source.count());
}

std::string describe(const ImageProperties& properties) {
  const auto seconds = [](const std::optional<double>& delay) {
    return delay ? fmt::format("{}", *delay) : std::string("none");
  };
  return fmt::format("{{width = {}, height = {}, delayTime = {}, unclampedDelayTime = {}}}", properties.width,
                     properties.height, seconds(properties.delayTime), seconds(properties.unclampedDelayTime));
}

}  // namespace

/// Fills a new image from its source.
struct TavrelAnimatedImage::Loader {
  TavrelAnimatedImage& image;
  std::size_t droppedFrameCount = 0;
  double precedingDelay = kDelayTimeIntervalDefault;

  /// Only frames up to the first one that can be decoded are.
  void readFrames() {
    Implementation& own = *image.implementation_;
    // Without a word about loops it is played once.
    own.loopCount = static_cast<std::size_t>(own.imageSource->loopCount().value_or(1));
    own.frameCount = own.imageSource->count();
    for (std::size_t i = 0; i < own.frameCount; ++i) {
      if (own.posterImage ? own.imageSource->holdsPicture(i) : readPoster(i)) {
        keepFrame(i);
      } else {
        info("Dropping frame {} because failed to `CGImageSourceCreateImageAtIndex` with image source {}", i,
             describe(*own.imageSource));
        ++droppedFrameCount;
      }
    }
    for (const auto& [index, delay] : own.delayTimesForIndexes) own.durationPerLoop += delay;
  }

  bool readPoster(std::size_t index) {
    Implementation& own = *image.implementation_;
    const std::shared_ptr<Image> frame = image.decodedFrame(index);
    if (!frame) return false;
    own.posterImage = own.predrawingEnabled ? predrawnImageFromImage(frame) : frame;
    own.posterImageFrameIndex = index;
    own.cachedFramesForIndexes[index] = own.posterImage;
    return true;
  }

  void keepFrame(std::size_t index) {
    precedingDelay = delayOf(index);
    image.implementation_->delayTimesForIndexes[index] = precedingDelay;
  }

  double delayOf(std::size_t index) const {
    const ImageProperties properties = image.implementation_->imageSource->properties(index);
    auto delay = properties.unclampedDelayTime ? properties.unclampedDelayTime : properties.delayTime;
    if (!delay && image.implementation_->delayTimesForIndexes.empty()) {
      info("Falling back to default delay time for first frame {} because none found in GIF properties {}",
           tavrel::describe(*image.implementation_->posterImage), describe(properties));
      delay = kDelayTimeIntervalDefault;
    } else if (!delay) {
      info("Falling back to preceding delay time for frame {} {} because none found in GIF properties {}", index,
           tavrel::describe(*image.implementation_->posterImage), describe(properties));
      delay = precedingDelay;
    }
    // In single precision, and with some room, so that a stored 0.02 is never taken for less.
    const float shortest =
        static_cast<float>(kTavrelAnimatedImageDelayTimeIntervalMinimum) - std::numeric_limits<float>::epsilon();
    if (static_cast<float>(*delay) >= shortest) return *delay;
    info("Rounding frame {}'s `delayTime` from {:f} up to default {:f} (minimum supported: {:f}).", index, *delay,
         kDelayTimeIntervalDefault, kTavrelAnimatedImageDelayTimeIntervalMinimum);
    return kDelayTimeIntervalDefault;
  }

  std::size_t bestFrameCacheSize() const {
    const std::size_t bytes = image.implementation_->posterImage->bytesPerRow() *
                              image.implementation_->posterImage->height() *
                              (image.implementation_->frameCount - droppedFrameCount);
    const double megabytes = static_cast<double>(bytes) / (1 << 20);
    if (megabytes <= kDataSizeOfAllFrames) return image.implementation_->frameCount;
    return megabytes <= kDataSizeOfDefault ? kFrameCacheSizeDefault : kFrameCacheSizeLowMemory;
  }
};

Expected<std::shared_ptr<TavrelAnimatedImage>> TavrelAnimatedImage::create(std::shared_ptr<DataProvider> data,
                                                                           std::size_t optimalFrameCacheSize,
                                                                           bool predrawingEnabled) {
  if (!data || data->bytes().empty())
    return animatedImageFailure(ImagingErrorCode::nothingGiven, "No animated GIF data supplied.");
  auto source = createPictures(data, "the animated GIF");
  if (!source) {
    auto error = animatedImageFailure(
        static_cast<ImagingErrorCode>(source.error().code),
        fmt::format("Failed to `CGImageSourceCreateWithData` for animated GIF data {}", tavrel::describe(*data)));
    error.value().description += ": " + source.error().description;
    return error;
  }
  if ((*source)->count() == 1 && std::string_view((*source)->type()) != "image/gif") {
    return animatedImageFailure(ImagingErrorCode::unknownFormat,
                                fmt::format("Supplied data is of type {} and doesn't seem to be GIF data {}",
                                            (*source)->type(), tavrel::describe(*data)));
  }
  std::shared_ptr<TavrelAnimatedImage> image(new TavrelAnimatedImage(std::move(data)));
  image->implementation_->imageSource = std::move(*source);
  image->implementation_->predrawingEnabled = predrawingEnabled;
  Loader loader{*image};
  loader.readFrames();
  const auto properties = [&] { return describe(image->implementation_->imageSource->properties(0)); };
  if (!image->implementation_->posterImage) {
    return animatedImageFailure(
        ImagingErrorCode::damagedPicture,
        fmt::format("Failed to create any valid frames for GIF with properties {}", properties()));
  }
  if (image->implementation_->frameCount == 1) {
    info("Created valid GIF but with only a single frame. Image properties: {}", properties());
  }
  const std::size_t wanted = optimalFrameCacheSize == 0 ? loader.bestFrameCacheSize() : optimalFrameCacheSize;
  image->implementation_->frameCacheSizeOptimal = std::min(wanted, image->implementation_->frameCount);
  for (std::size_t i = 0; i < image->implementation_->frameCount; ++i)
    image->implementation_->allFramesIndexSet.insert(i);
  image->implementation_->serialQueue = DispatchQueue::create("com.TavrelBase.framecache");
  image->implementation_->weakProxy = FLWeakProxy<TavrelAnimatedImage>::weakProxyForObject(image);
  shared().add(image);
  return image;
}

}  // namespace tavrel
