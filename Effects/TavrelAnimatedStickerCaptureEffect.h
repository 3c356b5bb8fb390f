#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "Effects/TavrelCaptureEffect.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

class DataProvider;

/// Lays an animation over the frame: a GIF, an animated PNG, WebP or AVIF picture, a short movie, or pictures from
/// files that take turns.
///
/// It owns its part of the graph: `picture` → a placement filter → `filter`, at that one's texture location 1. The
/// camera's frames enter `filter` at location 0. For every frame the effect is told the time with
/// `refreshPictureWithTimestamp`; `picture` has to be processed before the first one, and again when it is another one
/// or was placed anew. One thread at a time, but for refreshing, for `loopCount` and for `startTimestamp`, which frames
/// that run take up.
///
/// A camera's frames never wait for the sticker: another thread decodes ahead, and `prepareFrame` shows the newest
/// frame that is ready. Where frames are to show exactly what is due (`setWaitsForPictures`), and in
/// `refreshPictureWithTimestamp`, they wait for decoding and for the video-processing queue.
class TAVREL_API TavrelAnimatedStickerCaptureEffect : public TavrelCaptureEffect {
 public:
  /// Fails ("imaging") when the bytes are no animation with a frame that can be decoded. Its kind is told by content.
  static Expected<std::shared_ptr<TavrelAnimatedStickerCaptureEffect>> create(Data gifData);
  /// Each picture is shown for `interval` seconds. The first one is loaded at once; it gives the sticker's size, and
  /// fails ("imaging" or "posix") when there is none. A later one that cannot be loaded leaves the one before in place.
  static Expected<std::shared_ptr<TavrelAnimatedStickerCaptureEffect>> create(
      std::vector<std::filesystem::path> imagePaths, float interval);
  ~TavrelAnimatedStickerCaptureEffect() override;

  /// It takes over attachments and the animation, which it plays by itself from the start. Loop count, rectangle,
  /// rotation and video size are those of a new one.
  std::shared_ptr<TavrelCaptureEffect> copy() const override;
  /// `filter` and `picture`, placed on frames of that size.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size) const override { return output; }
  TavrelCaptureEffectPart onPart(const Rect& input, Size frameSize) const override;
  /// Shows what is due at `frameTime`, or the newest before it that is ready, if that is a time.
  std::shared_ptr<PixelBuffer> prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                            const SampleTiming& sampleTimingInfo, MediaTime frameTime) override;
  /// False at first. Any thread.
  void setWaitsForPictures(bool waits) override;

  /// The animation's bytes; nullptr for pictures from files.
  std::shared_ptr<DataProvider> gifData() const;
  const std::vector<std::filesystem::path>& imagePaths() const;
  float interval() const;

  /// How often the animation is played; 0 or less means as often as the GIF says, or without end for files. After that
  /// the last frame stays while it is due in the next loop.
  std::int64_t loopCount() const { return loopCount_; }
  void setLoopCount(std::int64_t loopCount) { changeValue(loopCount_, loopCount, "loopCount"); }
  /// Where the sticker lies, in pixels of the video. This and the rotation count from the next `setVideoSize` on.
  const Rect& destRect() const { return destRect_; }
  void setDestRect(const Rect& destRect) { change(destRect_, destRect, "destRect"); }
  /// In radians, about the rectangle's centre.
  double rotation() const { return rotation_; }
  void setRotation(double rotation) { change(rotation_, rotation, "rotation"); }
  /// The time, in seconds of the video, at which the animation started; negative before that.
  double startTimestamp() const { return startTimestamp_; }
  void setStartTimestamp(double startTimestamp) { change(startTimestamp_, startTimestamp, "startTimestamp"); }

  /// Of the frames, in pixels. Setting it, even to the same, places the sticker.
  Size videoSize() const { return videoSize_; }
  void setVideoSize(Size videoSize);

  const std::shared_ptr<TavrelGPUImagePicture>& picture() const;
  /// The blend filter, whose output is the frame with the sticker.
  std::shared_ptr<TavrelGPUImageFilter> filter() const;
  /// Of the sticker's picture, in pixels.
  Size size() const;

  /// Shows what is due at this time, in seconds; the first call starts the animation. A picture that is shown already
  /// is not touched. True when `picture` is another one now.
  bool refreshPictureWithTimestamp(double timestamp);

 private:
  struct Implementation;

  template <typename Property, typename Value>
  void change(Property& property, const Value& value, std::string_view name) {
    if (isFinite(value)) changeValue(property, value, name);
  }
  std::optional<std::size_t> frameDueAt(double timestamp);
  void showReadyFrame(double timestamp);

  explicit TavrelAnimatedStickerCaptureEffect(std::unique_ptr<Implementation> implementation);
  TavrelAnimatedStickerCaptureEffect(const TavrelAnimatedStickerCaptureEffect& source);

  const std::unique_ptr<Implementation> implementation_;
  std::atomic<std::int64_t> loopCount_ = 0;
  std::atomic<double> startTimestamp_ = -1;
  Rect destRect_;
  double rotation_ = 0;
  Size videoSize_;
};

}  // namespace tavrel
