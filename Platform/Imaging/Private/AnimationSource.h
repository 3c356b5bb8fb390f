#pragma once

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Imaging/ImageSource.h"
#include "Platform/Imaging/Private/PixelConversion.h"
#include "Platform/Imaging/Private/RecycledPixels.h"

namespace tavrel {

/// Where a frame lies on the canvas of its animation, which it may reach beyond, and how it is laid over the others.
struct AnimationFrame {
  /// What becomes of the frame's area before the next one is drawn.
  enum class Disposal { keep, clear, restore };

  int left = 0, top = 0, width = 0, height = 0;
  Disposal disposal = Disposal::keep;
  /// Nothing that was in its area shows through.
  bool isOpaque = false;
  /// It is known without unpacking that there is nothing to see in it.
  bool isEmpty = false;
  /// In seconds, as stored.
  std::optional<double> delay = std::nullopt;

  std::size_t pixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
};

/// An animation whose frames are laid over each other on a canvas that starts transparent. Formats say what frames
/// there are and draw single ones; in which order that is done, and from which snapshot of the canvas, is settled here.
class AnimationSource : public ImageSource {
 public:
  AnimationSource(std::shared_ptr<DataProvider> data, std::string name);

  std::size_t count() const override { return frames_.size(); }
  bool holdsPicture(std::size_t index) const override { return index < frames_.size() && !frames_[index].isEmpty; }
  std::optional<int> loopCount() const override { return loopCount_; }
  Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) override;
  Expected<std::shared_ptr<Image>> decodedImage(std::size_t index, const ImageDecoding& decoding) override;
  ImageMetadata metadata() const override { return metadata_; }
  ImageProperties properties(std::size_t index) const override;
  bool prepareJumps() override;
  void giveUp() override { isGivenUp_ = true; }

 protected:
  /// The part of a frame that lies on the canvas.
  struct Area {
    int left, top, width, height;
  };

  /// Fails when an animation cannot have a canvas of this size.
  Expected<void> setCanvasSize(std::size_t width, std::size_t height);
  void setLoopCount(std::optional<int> loopCount) { loopCount_ = loopCount; }
  void setMetadata(ImageMetadata metadata) { metadata_ = std::move(metadata); }
  /// How a picture that does not move is to be turned.
  void setOrientation(ImageOrientation orientation) { orientation_ = orientation; }
  ImageOrientation orientation() const { return orientation_; }
  void setBitsPerComponent(std::size_t bits) { bitsPerComponent_ = bits; }
  /// Converts straight B, G, R, A pixels as stored to the colours asked for.
  void convertColors(Bitmap& straight) const;
  /// False, without a new frame, when that would be more than an animation may have. After `setCanvasSize`.
  bool addFrame(const AnimationFrame& frame);

  /// Draws what the file has for the frame onto the canvas, as far as that can be read. The reason when none of it can.
  virtual std::optional<std::string> draw(std::size_t index, Bitmap& canvas) = 0;
  /// Lays straight B, G, R, A pixels, as many as the frame has, over what is in its area or in place of that.
  void lay(Bitmap& straight, const AnimationFrame& frame, bool over, Bitmap& canvas) const;

  /// A frame that was thought opaque turns out to be damaged, so that others show through.
  void noteHoles(std::size_t index);

  bool isGivenUp() const { return isGivenUp_; }
  std::span<const std::uint8_t> bytes() const { return data_->bytes(); }
  const std::string& name() const { return name_; }
  const std::vector<AnimationFrame>& frames() const { return frames_; }
  int width() const { return width_; }
  int height() const { return height_; }
  Area areaOf(const AnimationFrame& frame) const;

 private:
  bool covers(const AnimationFrame& frame) const;
  bool startsAfresh(std::size_t index) const;
  void compose(std::size_t index);
  std::optional<std::string> drawFrame(std::size_t index);
  bool startsAgain();
  void walkTo(std::size_t index);
  void leaveShown();
  void goToNearest(std::size_t index);
  template <typename Handler>
  void forRowsOf(const AnimationFrame& frame, Handler handle);
  void clear(const AnimationFrame& frame);
  void save(const AnimationFrame& frame);
  void restore(const AnimationFrame& frame);
  std::size_t checkPointInterval() const;

  const std::shared_ptr<DataProvider> data_;
  const std::string name_;
  int width_ = 0, height_ = 0;
  std::vector<AnimationFrame> frames_;
  std::size_t framePixels_ = 0;
  std::optional<int> loopCount_;
  ImageMetadata metadata_;
  ImageOrientation orientation_ = ImageOrientation::up;
  std::size_t bitsPerComponent_ = 8;
  bool keepsColors_ = false;
  std::atomic<bool> isGivenUp_ = false;

  const std::shared_ptr<RecycledPixels> recycledPixels_ = std::make_shared<RecycledPixels>();
  std::optional<Bitmap> canvas_;
  /// The frame for which the canvas is made ready: all before it are drawn and disposed of.
  std::optional<std::size_t> next_;
  /// The frame that the canvas shows.
  std::optional<std::size_t> shown_;
  /// Why the frame shown could not be drawn.
  std::optional<std::string> damage_;
  /// The canvas lacks what shows through a damaged frame.
  bool lacksOthers_ = false;
  /// What was under the frame shown, where that frame wants it back.
  Data saved_;
  /// The canvas as it was made ready for these frames.
  std::map<std::size_t, Data> checkPoints_;
  /// Up to which frame check-points were looked after.
  std::size_t prepared_ = 0;
};

/// A source whose structure was read, or why it could not be.
template <typename Source>
Expected<std::shared_ptr<ImageSource>> createAnimation(std::shared_ptr<DataProvider> data, std::string name) {
  auto source = std::make_shared<Source>(std::move(data), std::move(name));
  return source->readStructure().map([&] { return std::shared_ptr<ImageSource>(source); });
}

}  // namespace tavrel
