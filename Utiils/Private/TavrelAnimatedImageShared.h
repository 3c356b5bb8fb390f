#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Imaging/ImageSource.h"
#include "Platform/Imaging/ImagingError.h"
#include "Utiils/TavrelAnimatedImage.h"

namespace tavrel {

/// What an image is made of.
struct TavrelAnimatedImage::Implementation {
  std::shared_ptr<DataProvider> data;
  std::mutex imageSourceMutex;
  std::shared_ptr<ImageSource> imageSource;
  std::shared_ptr<Image> posterImage;
  std::size_t posterImageFrameIndex = 0;
  std::size_t loopCount = 0;
  std::map<std::size_t, double> delayTimesForIndexes;
  std::size_t frameCount = 0;
  double durationPerLoop = 0;
  bool predrawingEnabled = true;

  std::size_t frameCacheSizeOptimal = 0;
  std::size_t frameCacheSizeMax = 0;
  std::size_t frameCacheSizeMaxInternal = 0;
  std::size_t requestedFrameIndex = 0;
  std::set<std::size_t> requestedFrameIndexes;
  std::map<std::size_t, std::shared_ptr<Image>> cachedFramesForIndexes;
  std::set<std::size_t> allFramesIndexSet;

  std::size_t memoryWarningCount = 0;
  std::uint64_t delayedCall = 0;
  FLWeakProxy<TavrelAnimatedImage> weakProxy;
  std::weak_ptr<TavrelAnimatedImageDebugDelegate> debug_delegate;
  std::shared_ptr<DispatchQueue> serialQueue;
};

/// What all animated images have in common. Never destroyed: images may go while the process's statics do.
struct TavrelAnimatedImage::Shared {
  std::mutex mutex;
  /// Every image that lives, so that one memory-warning handler reaches them all.
  std::vector<std::weak_ptr<TavrelAnimatedImage>> allAnimatedImagesWeak;
  std::once_flag observesMemoryWarnings;
  LogBlock logBlock = libraryLogBlock();
  TavrelAnimatedImageLogLevel logLevel = TavrelAnimatedImageLogLevel::warning;
  DelayedCallScheduler scheduler;

  void add(const std::shared_ptr<TavrelAnimatedImage>& image);
  std::vector<std::shared_ptr<TavrelAnimatedImage>> liveImages();
};

/// Where every failure of `create` ends: logged as an error and returned with the same text.
inline tl::unexpected<Error> animatedImageFailure(ImagingErrorCode code, const std::string& text) {
  TavrelAnimatedImage::logStringFromBlock([&] { return text; }, TavrelAnimatedImageLogLevel::error);
  return failure(code, text);
}

/// How messages name things.
inline std::string describe(const Image& image) { return fmt::format("<Image {}x{}>", image.width(), image.height()); }
inline std::string describe(const DataProvider& data) { return fmt::format("<{} bytes>", data.bytes().size()); }
inline std::string describe(Size size) { return fmt::format("{{{}, {}}}", size.width, size.height); }

}  // namespace tavrel
