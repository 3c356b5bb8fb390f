#pragma once

#include <array>
#include <cstdint>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// A position in a list, or the number of an input slot.
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

/// True for exactly (0, 0), which stands for no size in the graph.
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

/// The largest rectangle of proportions `aspectRatio` inside `bounds`, centred. If a side of `aspectRatio` is not
/// positive, an empty rectangle at the centre of `bounds`.
TAVREL_API Rect rectWithAspectRatioInsideRect(Size aspectRatio, const Rect& bounds);

/// An affine transform of row vectors: (x', y') = (a·x + c·y + tx, b·x + d·y + ty).
struct TAVREL_API AffineTransform {
  double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
  friend bool operator==(const AffineTransform&, const AffineTransform&) = default;

  static AffineTransform zero() { return {0, 0, 0, 0, 0, 0}; }
  static AffineTransform makeTranslation(double tx, double ty) { return {1, 0, 0, 1, tx, ty}; }
  static AffineTransform makeScale(double sx, double sy) { return {sx, 0, 0, sy, 0, 0}; }
  /// Counter-clockwise by `radians` where y points up.
  static AffineTransform makeRotation(double radians);

  bool isIdentity() const { return *this == AffineTransform{}; }
  /// Applies this transform, then `next`.
  AffineTransform concatenating(const AffineTransform& next) const;
  /// Each of these applies the named step, then this transform.
  AffineTransform translatedBy(double x, double y) const;
  AffineTransform scaledBy(double sx, double sy) const;
  AffineTransform rotatedBy(double radians) const;
  Point apply(Point point) const;
};

/// A 4×4 transform of row vectors in row-major order: m[0..3] is m11 m12 m13 m14; the translation is m[12..14].
struct TAVREL_API Transform3D {
  std::array<double, 16> m = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  friend bool operator==(const Transform3D&, const Transform3D&) = default;

  static Transform3D makeAffine(const AffineTransform& transform);
  static Transform3D makeTranslation(double x, double y, double z);
  static Transform3D makeScale(double x, double y, double z);
  /// Rotates by `radians` about the axis (x, y, z), which need not be normalised; a zero axis gives the identity.
  static Transform3D makeRotation(double radians, double x, double y, double z);
  /// Applies this transform, then `next`.
  Transform3D concatenating(const Transform3D& next) const;
  /// The part within the xy plane.
  AffineTransform affine() const;
};

}  // namespace tavrel
