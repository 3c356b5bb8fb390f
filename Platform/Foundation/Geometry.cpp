#include "Platform/Foundation/Geometry.h"

#include <algorithm>
#include <cmath>

namespace tavrel {

Rect rectWithAspectRatioInsideRect(Size aspectRatio, const Rect& bounds) {
  const Point centre = {bounds.midX(), bounds.midY()};
  if (aspectRatio.width <= 0 || aspectRatio.height <= 0) return {centre, {0, 0}};
  const double scale = std::min(bounds.size.width / aspectRatio.width, bounds.size.height / aspectRatio.height);
  const Size size = {aspectRatio.width * scale, aspectRatio.height * scale};
  return {{centre.x - size.width / 2, centre.y - size.height / 2}, size};
}

AffineTransform AffineTransform::makeRotation(double radians) {
  const double cosine = std::cos(radians);
  const double sine = std::sin(radians);
  return {cosine, sine, -sine, cosine, 0, 0};
}

AffineTransform AffineTransform::concatenating(const AffineTransform& next) const {
  return {a * next.a + b * next.c,
          a * next.b + b * next.d,
          c * next.a + d * next.c,
          c * next.b + d * next.d,
          tx * next.a + ty * next.c + next.tx,
          tx * next.b + ty * next.d + next.ty};
}

AffineTransform AffineTransform::translatedBy(double x, double y) const {
  return makeTranslation(x, y).concatenating(*this);
}

AffineTransform AffineTransform::scaledBy(double sx, double sy) const { return makeScale(sx, sy).concatenating(*this); }

AffineTransform AffineTransform::rotatedBy(double radians) const { return makeRotation(radians).concatenating(*this); }

Point AffineTransform::apply(Point point) const {
  return {a * point.x + c * point.y + tx, b * point.x + d * point.y + ty};
}

Transform3D Transform3D::makeAffine(const AffineTransform& t) {
  return {{t.a, t.b, 0, 0, t.c, t.d, 0, 0, 0, 0, 1, 0, t.tx, t.ty, 0, 1}};
}

Transform3D Transform3D::makeTranslation(double x, double y, double z) {
  return {{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1}};
}

Transform3D Transform3D::makeScale(double x, double y, double z) {
  return {{x, 0, 0, 0, 0, y, 0, 0, 0, 0, z, 0, 0, 0, 0, 1}};
}

Transform3D Transform3D::makeRotation(double radians, double x, double y, double z) {
  const double length = std::sqrt(x * x + y * y + z * z);
  if (length == 0) return {};
  x /= length;
  y /= length;
  z /= length;
  const double c = std::cos(radians);
  const double s = std::sin(radians);
  const double k = 1 - c;
  return {{c + x * x * k, x * y * k + z * s, x * z * k - y * s, 0,  //
           x * y * k - z * s, c + y * y * k, y * z * k + x * s, 0,  //
           x * z * k + y * s, y * z * k - x * s, c + z * z * k, 0,  //
           0, 0, 0, 1}};
}

Transform3D Transform3D::concatenating(const Transform3D& next) const {
  Transform3D product;
  for (int row = 0; row < 4; ++row) {
    for (int column = 0; column < 4; ++column) {
      double sum = 0;
      for (int k = 0; k < 4; ++k) sum += m[row * 4 + k] * next.m[k * 4 + column];
      product.m[row * 4 + column] = sum;
    }
  }
  return product;
}

AffineTransform Transform3D::affine() const { return {m[0], m[1], m[4], m[5], m[12], m[13]}; }

}  // namespace tavrel
