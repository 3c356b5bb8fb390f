#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "Effects/TavrelCaptureEffect.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

class DataProvider;

/// Draws an animation over the frame: an animated GIF, PNG, WebP or AVIF image, a short movie, or a sequence of image
/// files.
///
/// The effect owns its nodes: `picture` → a placement filter → texture location 1 of `filter`, which takes the frames
/// at location 0. Call `refreshPictureWithTimestamp` for every frame, and process `picture` before the first frame and
/// whenever it changes or is placed anew. One thread at a time, except refreshing, `loopCount` and `startTimestamp`,
/// which may be used while frames run.
///
/// A camera's frames never wait for the sticker: another thread decodes ahead, and `prepareFrame` shows the latest
/// picture that is ready. With `setWaitsForPictures`, and in `refreshPictureWithTimestamp`, frames wait for decoding
/// and for the video-processing queue, and show exactly what is due.
class TAVREL_API TavrelAnimatedStickerCaptureEffect : public TavrelCaptureEffect {
 public:
  /// Fails ("imaging") unless the bytes are an animation with a decodable frame. The format is detected by content.
  static Expected<std::shared_ptr<TavrelAnimatedStickerCaptureEffect>> create(Data gifData);
  /// Shows each image for `interval` seconds. The first one, which determines the sticker's size, is loaded at once;
  /// fails ("imaging" or "posix") if that is not possible. A later one that cannot be loaded leaves the previous one in
  /// place.
  static Expected<std::shared_ptr<TavrelAnimatedStickerCaptureEffect>> create(
      std::vector<std::filesystem::path> imagePaths, float interval);
  ~TavrelAnimatedStickerCaptureEffect() override;

  /// Copies the attachments and the animation, which starts anew. Loop count, rectangle, rotation and video size have
  /// their defaults.
  std::shared_ptr<TavrelCaptureEffect> copy() const override;
  /// `filter` and `picture`, placed for frames of that size.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size) const override { return output; }
  TavrelCaptureEffectPart onPart(const Rect& input, Size frameSize) const override;
  /// Shows the picture due at `frameTime`, or the latest before it that is ready, if that is numeric.
  std::shared_ptr<PixelBuffer> prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                            const SampleTiming& sampleTimingInfo, MediaTime frameTime) override;
  /// False by default. Any thread.
  void setWaitsForPictures(bool waits) override;

  /// The animation's bytes; nullptr for image files.
  std::shared_ptr<DataProvider> gifData() const;
  const std::vector<std::filesystem::path>& imagePaths() const;
  float interval() const;

  /// Number of loops; 0 or less: as many as the animation says, endless for image files. The limit has one effect: the
  /// last frame of the loop after these is not shown.
  std::int64_t loopCount() const;
  void setLoopCount(std::int64_t loopCount);
  /// The sticker's rectangle, in pixels of the video. Rectangle and rotation take effect at the next `setVideoSize`.
  const Rect& destRect() const;
  void setDestRect(const Rect& destRect);
  /// In radians, about the rectangle's centre.
  double rotation() const;
  void setRotation(double rotation);
  /// Video time in seconds at which the animation started; negative before.
  double startTimestamp() const;
  void setStartTimestamp(double startTimestamp);

  /// Size of the frames in pixels. Setting it, even to the same value, places the sticker.
  Size videoSize() const;
  void setVideoSize(Size videoSize);

  const std::shared_ptr<TavrelGPUImagePicture>& picture() const;
  /// The blend filter; outputs the frame with the sticker.
  std::shared_ptr<TavrelGPUImageFilter> filter() const;
  /// The sticker's own size, in pixels.
  Size size() const;

  /// Shows the picture due at this time, in seconds; the first call starts the animation. True if `picture` changed.
  bool refreshPictureWithTimestamp(double timestamp);

 private:
  struct Implementation;

  std::optional<std::size_t> frameDueAt(double timestamp);
  void showReadyFrame(double timestamp);

  explicit TavrelAnimatedStickerCaptureEffect(std::unique_ptr<Implementation> implementation);
  TavrelAnimatedStickerCaptureEffect(const TavrelAnimatedStickerCaptureEffect& source);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
