#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

class Asset;

/// A value that goes from one end of a time range to the other evenly; before the range the first, after it the last.
template <typename Value>
struct Ramp {
  Value start;
  Value end;
  MediaTimeRange timeRange;
};

/// How one track is laid into the picture: turned, moved and scaled by a transform, and let through by an opacity. Each
/// follows its ramps; between two ramps the earlier one's last value holds, before the first ramp its first value.
/// Values. One thread at a time.
class TAVREL_API VideoCompositionLayerInstruction {
 public:
  explicit VideoCompositionLayerInstruction(int trackID) : trackID_(trackID) {}

  int trackID() const { return trackID_; }
  /// From pixels of the track's picture to pixels of the render size, with the origin at the top left; from `time` on.
  void setTransform(const AffineTransform& transform, MediaTime time);
  void setTransformRamp(const AffineTransform& start, const AffineTransform& end, const MediaTimeRange& timeRange);
  /// 0 to 1; from `time` on.
  void setOpacity(double opacity, MediaTime time);
  void setOpacityRamp(double start, double end, const MediaTimeRange& timeRange);

  /// The identity without a ramp.
  AffineTransform transformAt(MediaTime time) const;
  /// 1 without a ramp.
  double opacityAt(MediaTime time) const;

 private:
  int trackID_;
  std::vector<Ramp<AffineTransform>> transforms_;  // in order of their starts
  std::vector<Ramp<double>> opacities_;
};

/// What is shown during a time range: layers, the first one in front, on a plain background.
struct VideoCompositionInstruction {
  /// Components from 0 to 1.
  struct Color {
    double red = 0, green = 0, blue = 0, alpha = 1;
  };

  MediaTimeRange timeRange;
  Color backgroundColor;
  std::vector<VideoCompositionLayerInstruction> layerInstructions;
};

/// How the video tracks of an asset become one picture. Read by one thread at a time.
class TAVREL_API VideoComposition {
 public:
  virtual ~VideoComposition() = default;

  /// From one picture to the next; positive.
  MediaTime frameDuration() const { return frameDuration_; }
  /// In pixels.
  Size renderSize() const { return renderSize_; }
  /// The picture's size is the render size times this.
  double renderScale() const { return renderScale_; }
  /// They should not overlap; the first one that holds a time counts. Where there is none, the picture is black.
  const std::vector<VideoCompositionInstruction>& instructions() const { return instructions_; }

 protected:
  VideoComposition() = default;

  MediaTime frameDuration_ = MediaTime::make(1, 30);
  Size renderSize_;
  double renderScale_ = 1;
  std::vector<VideoCompositionInstruction> instructions_;
};

/// A video composition that can be changed.
class TAVREL_API MutableVideoComposition : public VideoComposition {
 public:
  static std::shared_ptr<MutableVideoComposition> create();
  /// All video tracks upright, the first one in front, in the size of the first and at the rate of the fastest.
  static std::shared_ptr<MutableVideoComposition> createWithPropertiesOfAsset(const Asset& asset);

  void setFrameDuration(MediaTime newValue) { frameDuration_ = newValue; }
  void setRenderSize(Size newValue) { renderSize_ = newValue; }
  void setRenderScale(double newValue) { renderScale_ = newValue; }
  void setInstructions(std::vector<VideoCompositionInstruction> newValue) { instructions_ = std::move(newValue); }

 private:
  MutableVideoComposition() = default;
};

}  // namespace tavrel
