#include "Platform/Capture/Virtual/SyntheticScene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Virtual/Private/PixelBufferCanvas.h"
#include "Platform/Capture/Virtual/Private/SyntheticMarks.h"
#include "Platform/Capture/Virtual/Private/VirtualOptics.h"

namespace tavrel {
namespace {

using Rgb = std::array<double, 3>;

/// Colours at the top left, what is added towards the right and towards the bottom, and the disc.
struct Palette {
  Rgb corner;
  Rgb rightwards;
  Rgb downwards;
  Rgb disc;
};

constexpr Palette kFront = {{96, 112, 168}, {56, 20, -40}, {-24, 30, 24}, {250, 214, 40}};
constexpr Palette kBack = {{72, 132, 84}, {-20, 40, 64}, {60, -36, 20}, {224, 64, 176}};
constexpr Rgb kSkin = {224, 172, 140};

constexpr double kDiscPeriod = 4;
constexpr int kTextureDepth = 14;

std::uint8_t component(double value) { return static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0)); }

double mix(double from, double to, double amount) { return from + (to - from) * amount; }

/// A fine, fixed grain: -1 … 1.
double grain(int x, int y) {
  auto mixed = static_cast<std::uint32_t>(x) * 0x9E3779B1U ^ static_cast<std::uint32_t>(y) * 0x85EBCA77U;
  mixed = (mixed ^ (mixed >> 15)) * 0x2C1B3C6DU;
  return static_cast<double>(mixed >> 16 & 0xFF) / 127.5 - 1;
}

/// An oval in pixels; `distance` is 1 on its edge.
struct Oval {
  double centreX;
  double centreY;
  double radiusX;
  double radiusY;

  double distance(double x, double y) const { return std::hypot((x - centreX) / radiusX, (y - centreY) / radiusY); }
};

Oval faceOval(int width, int height) {
  const double unit = std::min(width, height);
  return {width * 0.5, height * 0.54, unit * 0.22, unit * 0.32};
}

void drawBackdrop(const BgraCanvas& canvas, const Palette& palette) {
  const Oval face = faceOval(canvas.width, canvas.height);
  for (int y = 0; y < canvas.height; ++y) {
    const double down = static_cast<double>(y) / canvas.height;
    std::uint8_t* pixel = canvas.pixel(0, y);
    for (int x = 0; x < canvas.width; ++x, pixel += 4) {
      const double right = static_cast<double>(x) / canvas.width;
      // About two pixels from background to skin.
      const double inside = std::clamp((1 - face.distance(x + 0.5, y + 0.5)) * face.radiusX / 2 + 0.5, 0.0, 1.0);
      const double shade = inside > 0 ? (0.5 - down) * 40 + kTextureDepth * grain(x, y) : 0;
      for (std::size_t i = 0; i < 3; ++i) {
        const double background = palette.corner[i] + palette.rightwards[i] * right + palette.downwards[i] * down;
        pixel[2 - i] = component(mix(background, kSkin[i] + shade, inside));
      }
      pixel[3] = 255;
    }
  }
}

void drawDisc(const BgraCanvas& canvas, const VirtualFrame& frame, const Rgb& color) {
  const double unit = std::min(canvas.width, canvas.height);
  const double zoom = std::max(1.0, frame.zoom);
  const double angle =
      2 * std::numbers::pi * (frame.sceneTime / kDiscPeriod - std::floor(frame.sceneTime / kDiscPeriod));
  const double centreX = canvas.width / 2.0 + std::cos(angle) * unit * 0.36 * zoom;
  const double centreY = canvas.height / 2.0 + std::sin(angle) * unit * 0.36 * zoom;
  const double radius = std::max(2.0, unit * 0.07) * zoom;
  const double edge = 1 + VirtualOptics::blurRadius(canvas.height, frame);
  const int left = std::max(0, static_cast<int>(centreX - radius - edge));
  const int right = std::min(canvas.width, static_cast<int>(centreX + radius + edge) + 1);
  const int top = std::max(0, static_cast<int>(centreY - radius - edge));
  const int bottom = std::min(canvas.height, static_cast<int>(centreY + radius + edge) + 1);
  std::array<double, 3> exposed{};
  for (std::size_t i = 0; i < 3; ++i) exposed[i] = VirtualOptics::exposed(component(color[2 - i]), frame);
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      const double distance = std::hypot(x + 0.5 - centreX, y + 0.5 - centreY);
      const double inside = std::clamp((radius - distance) / edge + 0.5, 0.0, 1.0);
      if (inside <= 0) continue;
      std::uint8_t* pixel = canvas.pixel(x, y);
      for (std::size_t i = 0; i < 3; ++i) pixel[i] = component(mix(pixel[i], exposed[i], inside));
    }
  }
}

}  // namespace

struct SyntheticScene::Implementation {
  explicit Implementation(const Palette& usedPalette) : palette(usedPalette) {}

  const Palette& palette;
  VirtualOptics optics;
  BgraPicture backdrop;  // what does not move

  BgraCanvas seenBackdrop(int width, int height, const VirtualFrame& frame) {
    const BgraCanvas old = backdrop.canvas();
    const bool isNew = old.width != width || old.height != height;
    if (isNew) {
      backdrop.resize(width, height);
      drawBackdrop(backdrop.canvas(), palette);
    }
    return optics.see(backdrop.canvas(), isNew, width, height, frame);
  }
};

SyntheticScene::SyntheticScene(Position position)
    : implementation_(std::make_unique<Implementation>(position == Position::front ? kFront : kBack)) {}

SyntheticScene::~SyntheticScene() = default;

Expected<void> SyntheticScene::render(PixelBuffer& buffer, const VirtualFrame& frame) {
  const PixelBufferCanvas locked(buffer);
  const BgraCanvas canvas = locked.canvas();
  if (canvas.width < 16 || canvas.height < 16) {
    return failure(CaptureErrorCode::invalidConfiguration, "the drawn scene needs at least 16 by 16 pixels");
  }
  copyPicture(implementation_->seenBackdrop(canvas.width, canvas.height, frame), canvas);
  drawDisc(canvas, frame, implementation_->palette.disc);
  drawFrameCounter(canvas, frame.frameNumber);
  drawClock(canvas, frame.sceneTime);
  drawFlash(canvas, flashIsLit(frame.sceneTime, frame.frameDuration));
  return {};
}

std::optional<std::uint32_t> SyntheticScene::decodeFrameCounter(const std::uint8_t* bytes, std::size_t bytesPerRow,
                                                                int width, int height) {
  // The canvas is only read here; it has no read-only twin.
  return readFrameCounter({const_cast<std::uint8_t*>(bytes), bytesPerRow, width, height});
}

bool SyntheticScene::isFlash(const std::uint8_t* bytes, std::size_t bytesPerRow, int width, int height) {
  return readFlash({const_cast<std::uint8_t*>(bytes), bytesPerRow, width, height});
}

}  // namespace tavrel
