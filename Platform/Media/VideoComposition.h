#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

class Asset;

/// A value that changes linearly during a time range; `start` holds before it and `end` after it.
template <typename Value>
struct Ramp {
  Value start;
  Value end;
  MediaTimeRange timeRange;
};

/// Transform and opacity of one track. Each follows its ramps; between ramps the last value holds, before the first
/// ramp its first value. A value; one thread at a time.
class TAVREL_API VideoCompositionLayerInstruction {
 public:
  explicit VideoCompositionLayerInstruction(int trackID) : trackID_(trackID) {}

  int trackID() const { return trackID_; }
  /// Maps pixels of the track to pixels of the render size, both with the origin at the top left, from `time` on.
  void setTransform(const AffineTransform& transform, MediaTime time);
  void setTransformRamp(const AffineTransform& start, const AffineTransform& end, const MediaTimeRange& timeRange);
  /// 0 to 1, from `time` on.
  void setOpacity(double opacity, MediaTime time);
  void setOpacityRamp(double start, double end, const MediaTimeRange& timeRange);

  /// By default the identity.
  AffineTransform transformAt(MediaTime time) const;
  /// By default 1.
  double opacityAt(MediaTime time) const;

 private:
  int trackID_;
  std::vector<Ramp<AffineTransform>> transforms_;  // in order of their starts
  std::vector<Ramp<double>> opacities_;
};

/// What is shown during a time range: layers, the first one in front, over a background colour.
struct VideoCompositionInstruction {
  /// Components from 0 to 1.
  struct Color {
    double red = 0, green = 0, blue = 0, alpha = 1;
  };

  MediaTimeRange timeRange;
  Color backgroundColor;
  std::vector<VideoCompositionLayerInstruction> layerInstructions;
};

/// How video tracks are composed into one. One thread at a time.
class TAVREL_API VideoComposition {
 public:
  virtual ~VideoComposition() = default;

  /// Time between frames; positive.
  MediaTime frameDuration() const { return frameDuration_; }
  /// In pixels.
  Size renderSize() const { return renderSize_; }
  /// Output size is the render size times this factor.
  double renderScale() const { return renderScale_; }
  /// They should not overlap; the first that contains a time is used. Without one the frame is black.
  const std::vector<VideoCompositionInstruction>& instructions() const { return instructions_; }

 protected:
  VideoComposition() = default;

  MediaTime frameDuration_ = MediaTime::make(1, 30);
  Size renderSize_;
  double renderScale_ = 1;
  std::vector<VideoCompositionInstruction> instructions_;
};

/// An editable video composition.
class TAVREL_API MutableVideoComposition : public VideoComposition {
 public:
  static std::shared_ptr<MutableVideoComposition> create();
  /// Shows all video tracks upright, the first in front, at the first track's size and the highest frame rate.
  static std::shared_ptr<MutableVideoComposition> createWithPropertiesOfAsset(const Asset& asset);

  void setFrameDuration(MediaTime newValue) { frameDuration_ = newValue; }
  void setRenderSize(Size newValue) {
    if (isFinite(newValue)) renderSize_ = newValue;
  }
  void setRenderScale(double newValue) {
    if (isFinite(newValue)) renderScale_ = newValue;
  }
  void setInstructions(std::vector<VideoCompositionInstruction> newValue) { instructions_ = std::move(newValue); }

 private:
  MutableVideoComposition() = default;
};

}  // namespace tavrel
