#pragma once

#include <fmt/format.h>

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Imaging/ImagingError.h"
#include "Utiils/TavrelAnimatedImage.h"

namespace tavrel {

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
inline std::string describe(const Image& image) {
  return fmt::format("<Image {}x{}>", image.width(), image.height());
}
inline std::string describe(const DataProvider& data) {
  return fmt::format("<{} bytes>", data.bytes().size());
}
inline std::string describe(Size size) {
  return fmt::format("{{{}, {}}}", size.width, size.height);
}

}  // namespace tavrel
