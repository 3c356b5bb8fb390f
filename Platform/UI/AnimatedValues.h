#pragma once

#include <string_view>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// The animatable values of a layer at one moment. Setters ignore NaN and infinity.
struct TAVREL_API AnimatedValues {
  double opacity = 1;
  double positionX = 0;
  double positionY = 0;
  double cornerRadius = 0;
  double borderWidth = 0;
  double scaleX = 1;
  double scaleY = 1;
  double rotation = 0;  ///< radians
  double translationX = 0;
  double translationY = 0;

  /// Decomposes `transform` into scale, rotation and translation; a shear is lost.
  void setTransform(const AffineTransform& transform);
  /// Scales first, then rotates, then translates.
  AffineTransform transform() const;

  /// True for "opacity", "position.x", "position.y", "cornerRadius", "borderWidth", "transform.scale" (both sides),
  /// "transform.scale.x", "transform.scale.y", "transform.rotation", "transform.translation.x" and
  /// "transform.translation.y".
  static bool hasKeyPath(std::string_view keyPath);
  double value(std::string_view keyPath) const;
  void setValue(double value, std::string_view keyPath);
};

}  // namespace tavrel
