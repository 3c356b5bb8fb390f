#include "Platform/UI/DrawableLayer.h"

#include <algorithm>
#include <cmath>

#include "Platform/Graphics/GLDrawable.h"

namespace tavrel {
namespace {

/// No texture is wider or higher.
constexpr double kMostPixels = 65536;

}  // namespace

DrawableLayer::DrawableLayer() : drawable_(std::make_shared<GLDrawable>()) {}

DrawableLayer::~DrawableLayer() = default;

void DrawableLayer::contentsSizeDidChange() {
  // Sizes that are whole but for a rounding error are whole.
  const auto pixels = [this](double points) {
    return static_cast<int>(std::clamp(std::floor(points * contentsScale() + 1e-6), 0.0, kMostPixels));
  };
  drawable_->setPixelSize({pixels(bounds().size.width), pixels(bounds().size.height)});
}

}  // namespace tavrel
