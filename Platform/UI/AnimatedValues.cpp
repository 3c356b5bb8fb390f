#include "Platform/UI/AnimatedValues.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {
namespace {

using Member = double AnimatedValues::*;

struct KeyPath {
  std::string_view name;
  Member member;
  Member second = nullptr;  // set to the same value
};

constexpr std::array<KeyPath, 11> kKeyPaths = {{
    {"opacity", &AnimatedValues::opacity},
    {"position.x", &AnimatedValues::positionX},
    {"position.y", &AnimatedValues::positionY},
    {"cornerRadius", &AnimatedValues::cornerRadius},
    {"borderWidth", &AnimatedValues::borderWidth},
    {"transform.scale", &AnimatedValues::scaleX, &AnimatedValues::scaleY},
    {"transform.scale.x", &AnimatedValues::scaleX},
    {"transform.scale.y", &AnimatedValues::scaleY},
    {"transform.rotation", &AnimatedValues::rotation},
    {"transform.translation.x", &AnimatedValues::translationX},
    {"transform.translation.y", &AnimatedValues::translationY},
}};

const KeyPath* find(std::string_view name) {
  const auto* const found =
      std::find_if(kKeyPaths.begin(), kKeyPaths.end(), [&](const KeyPath& path) { return path.name == name; });
  return found == kKeyPaths.end() ? nullptr : found;
}

const KeyPath& require(std::string_view name) {
  const KeyPath* const found = find(name);
  if (!found) fatalAssertion("A layer has no key path \"{}\" that could be animated.", name);
  return *found;
}

}  // namespace

void AnimatedValues::setTransform(const AffineTransform& transform) {
  if (!isFinite(transform)) return;
  scaleX = std::hypot(transform.a, transform.b);
  const double determinant = transform.a * transform.d - transform.b * transform.c;
  scaleY = scaleX > 0 ? determinant / scaleX : std::hypot(transform.c, transform.d);
  rotation = std::atan2(transform.b, transform.a);
  translationX = transform.tx;
  translationY = transform.ty;
}

AffineTransform AnimatedValues::transform() const {
  return AffineTransform::makeScale(scaleX, scaleY)
      .concatenating(AffineTransform::makeRotation(rotation))
      .concatenating(AffineTransform::makeTranslation(translationX, translationY));
}

bool AnimatedValues::hasKeyPath(std::string_view keyPath) { return find(keyPath) != nullptr; }

double AnimatedValues::value(std::string_view keyPath) const { return this->*require(keyPath).member; }

void AnimatedValues::setValue(double value, std::string_view keyPath) {
  const KeyPath& path = require(keyPath);
  if (!isFinite(value)) return;
  this->*path.member = value;
  if (path.second) this->*path.second = value;
}

}  // namespace tavrel
