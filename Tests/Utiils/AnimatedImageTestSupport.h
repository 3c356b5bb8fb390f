#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Dispatch/RunLoop.h"
#include "Support/EffectsGif.h"
#include "Utiils/TavrelAnimatedImage.h"

namespace tavrel::test {

using Level = TavrelAnimatedImageLogLevel;

/// Collects what the images log while it lives.
class LogCapture {
 public:
  explicit LogCapture(Level level = Level::debug) {
    TavrelAnimatedImage::setLogBlock(
        [this](const std::string& text, Level messageLevel) {
          const std::lock_guard lock(mutex_);
          messages_.emplace_back(text, messageLevel);
        },
        level);
  }
  ~LogCapture() { TavrelAnimatedImage::setLogBlock(TavrelAnimatedImage::libraryLogBlock(), Level::warning); }

  bool contains(const std::string& part, Level level) const {
    const std::lock_guard lock(mutex_);
    return std::any_of(messages_.begin(), messages_.end(), [&](const auto& message) {
      return message.second == level && message.first.find(part) != std::string::npos;
    });
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<std::string, Level>> messages_;
};

inline std::shared_ptr<TavrelAnimatedImage> makeImage(const std::vector<GifFrameSpec>& frames,
                                                      std::size_t cacheSize = 0, int side = 2) {
  return TavrelAnimatedImage::create(makePlainGif(side, side, frames), cacheSize).value();
}

inline std::vector<GifFrameSpec> plainFrames(std::size_t count) { return std::vector<GifFrameSpec>(count); }

/// Runs the main loop until nothing is being decoded.
inline void finishDecoding(const TavrelAnimatedImage& image) {
  ASSERT_TRUE(
      RunLoop::main().runUntil([&] { return image.requestedFrameIndexes().empty(); }, std::chrono::seconds(20)));
}

}  // namespace tavrel::test
