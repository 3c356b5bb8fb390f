#pragma once

#include <array>
#include <cstdint>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Signed position in a list or number of an input slot.
using Index = std::int64_t;

struct Point {
  double x = 0;
  double y = 0;
  friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
  double width = 0;
  double height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

/// True for exactly (0, 0), the "no size" of the graph.
inline bool isZero(Size size) { return size.width == 0 && size.height == 0; }

struct Rect {
  Point origin;
  Size size;
  friend bool operator==(const Rect&, const Rect&) = default;

  double minX() const { return size.width < 0 ? origin.x + size.width : origin.x; }
  double maxX() const { return size.width < 0 ? origin.x : origin.x + size.width; }
  double minY() const { return size.height < 0 ? origin.y + size.height : origin.y; }
  double maxY() const { return size.height < 0 ? origin.y : origin.y + size.height; }
  double midX() const { return origin.x + size.width / 2; }
  double midY() const { return origin.y + size.height / 2; }
};

/// The largest rectangle of `aspectRatio`'s proportions inside `bounds`, centred in it.
/// A zero or negative side of `aspectRatio` gives an empty rectangle at the centre of `bounds`.
TAVREL_API Rect rectWithAspectRatioInsideRect(Size aspectRatio, const Rect& bounds);

/// 2D affine transform on row vectors: (x', y') = (a·x + c·y + tx, b·x + d·y + ty).
struct TAVREL_API AffineTransform {
  double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
  friend bool operator==(const AffineTransform&, const AffineTransform&) = default;

  static AffineTransform zero() { return {0, 0, 0, 0, 0, 0}; }
  static AffineTransform makeTranslation(double tx, double ty) { return {1, 0, 0, 1, tx, ty}; }
  static AffineTransform makeScale(double sx, double sy) { return {sx, 0, 0, sy, 0, 0}; }
  /// Counter-clockwise by `radians` where y points up.
  static AffineTransform makeRotation(double radians);

  bool isIdentity() const { return *this == AffineTransform{}; }
  /// The transform that applies this one first and `next` after it.
  AffineTransform concatenating(const AffineTransform& next) const;
  /// Each of these applies the named step to points first and this transform after it.
  AffineTransform translatedBy(double x, double y) const;
  AffineTransform scaledBy(double sx, double sy) const;
  AffineTransform rotatedBy(double radians) const;
  Point apply(Point point) const;
};

/// 4×4 transform on row vectors, stored row by row: m[0..3] is m11 m12 m13 m14, and the translation is m[12..14].
struct TAVREL_API Transform3D {
  std::array<double, 16> m = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  friend bool operator==(const Transform3D&, const Transform3D&) = default;

  static Transform3D makeAffine(const AffineTransform& transform);
  static Transform3D makeTranslation(double x, double y, double z);
  static Transform3D makeScale(double x, double y, double z);
  /// By `radians` about the axis (x, y, z), which need not have length 1; a zero axis gives the identity.
  static Transform3D makeRotation(double radians, double x, double y, double z);
  /// The transform that applies this one first and `next` after it.
  Transform3D concatenating(const Transform3D& next) const;
  /// The six numbers of the plane's part; what lies outside the plane is dropped.
  AffineTransform affine() const;
};

}  // namespace tavrel
