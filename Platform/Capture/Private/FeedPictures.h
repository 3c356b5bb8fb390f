#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "Platform/Capture/CameraFeed.h"
#include "Platform/Capture/Private/FeedPacer.h"

namespace tavrel {

/// The usual stride of the first plane, a multiple of four bytes.
std::size_t feedStride(CameraFeedFormat format, int width);
/// The size of a picture whose first plane has this stride; planes follow each other.
std::size_t feedByteCount(CameraFeedFormat format, std::size_t stride, int height);
/// Writes a BGRA picture in `format`, by libyuv.
void writeFeedPicture(const PixelBufferSnapshot& picture, CameraFeedFormat format, std::uint8_t* bytes,
                      std::size_t stride);

/// The latest picture of a feed, and which is due when. Any thread.
class FeedPictures {
 public:
  explicit FeedPictures(double framesPerSecond) : pacer_(framesPerSecond) {}

  void show(std::shared_ptr<const PixelBufferSnapshot> picture, std::int64_t now) {
    const std::lock_guard lock(mutex_);
    pacer_.came(now);
    latest_ = std::move(picture);
    isNew_ = true;
  }
  /// Forgets the picture, so that who reads later does not see what was long ago.
  void forget() {
    const std::lock_guard lock(mutex_);
    latest_ = nullptr;
    isNew_ = false;
  }
  /// The picture that is due now; nullptr when none is. It counts as sent unless `missed` is called.
  std::shared_ptr<const PixelBufferSnapshot> take(std::int64_t now) {
    const std::lock_guard lock(mutex_);
    if (!latest_ || pacer_.due(isNew_) > now) return nullptr;
    pacer_.sent(now, isNew_);
    ++(isNew_ ? counts_.shown : counts_.repeated);
    wasNew_ = std::exchange(isNew_, false);
    return latest_;
  }
  /// The picture taken last could not go out.
  void missed() {
    const std::lock_guard lock(mutex_);
    --(wasNew_ ? counts_.shown : counts_.repeated);
    ++counts_.missed;
  }
  /// Nanoseconds until one is due: 0 for now, an interval without a picture.
  std::int64_t wait(std::int64_t now) const {
    const std::lock_guard lock(mutex_);
    return latest_ ? std::max<std::int64_t>(pacer_.due(isNew_) - now, 0) : pacer_.interval();
  }
  CameraFeed::Counts counts() const {
    const std::lock_guard lock(mutex_);
    return counts_;
  }

 private:
  mutable std::mutex mutex_;
  FeedPacer pacer_;
  std::shared_ptr<const PixelBufferSnapshot> latest_;
  bool isNew_ = false;
  bool wasNew_ = false;
  CameraFeed::Counts counts_;
};

}  // namespace tavrel
