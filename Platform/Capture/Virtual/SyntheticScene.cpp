#include "Platform/Capture/Virtual/SyntheticScene.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <memory>
#include <mutex>
#include <numbers>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Virtual/Private/PixelBufferCanvas.h"
#include "Platform/Capture/Virtual/Private/ScenePortrait.h"
#include "Platform/Capture/Virtual/Private/SyntheticMarks.h"
#include "Platform/Capture/Virtual/Private/VirtualOptics.h"

namespace tavrel {
namespace {

/// The portrait's colours, and those of the ball that circles in front of it.
struct Palette {
  PortraitColors portrait;
  SceneRgb ball;
};

constexpr Palette kFront = {.portrait = {.wall = {78, 92, 150},
                                         .rightwards = {52, 8, -16},
                                         .downwards = {-18, -6, -14},
                                         .hair = {74, 46, 34},
                                         .iris = {92, 138, 112},
                                         .cloth = {44, 104, 112}},
                            .ball = {250, 206, 60}};
constexpr Palette kBack = {.portrait = {.wall = {66, 118, 92},
                                        .rightwards = {8, 10, 28},
                                        .downwards = {20, -16, -6},
                                        .hair = {44, 32, 30},
                                        .iris = {118, 78, 46},
                                        .cloth = {150, 58, 70}},
                           .ball = {224, 64, 176}};

constexpr double kBallPeriod = 4;
/// What has more pixels is drawn smaller, and enlarged: the first frame should not take long.
constexpr double kMostPixelsDrawn = 1280 * 720;

std::uint8_t component(double value) { return static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0)); }

double mix(double from, double to, double amount) { return from + (to - from) * amount; }

void drawBall(const BgraCanvas& canvas, const VirtualFrame& frame, const SceneRgb& color) {
  const double unit = std::min(canvas.width, canvas.height);
  const double zoom = std::max(1.0, frame.zoom);
  const double angle =
      2 * std::numbers::pi * (frame.sceneTime / kBallPeriod - std::floor(frame.sceneTime / kBallPeriod));
  const double centreX = canvas.width / 2.0 + std::cos(angle) * unit * 0.36 * zoom;
  const double centreY = canvas.height / 2.0 + std::sin(angle) * unit * 0.36 * zoom;
  const double radius = std::max(2.0, unit * 0.07) * zoom;
  const double edge = 1 + VirtualOptics::blurRadius(canvas.height, frame);
  const int left = std::max(0, static_cast<int>(centreX - radius - edge));
  const int right = std::min(canvas.width, static_cast<int>(centreX + radius + edge) + 1);
  const int top = std::max(0, static_cast<int>(centreY - radius - edge));
  const int bottom = std::min(canvas.height, static_cast<int>(centreY + radius + edge) + 1);
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      const double distance = std::hypot(x + 0.5 - centreX, y + 0.5 - centreY);
      const double inside = std::clamp((radius - distance) / edge + 0.5, 0.0, 1.0);
      if (inside <= 0) continue;
      std::uint8_t* pixel = canvas.pixel(x, y);
      // Lit from the upper left.
      const double across = (x + 0.5 - centreX) / radius, along = (y + 0.5 - centreY) / radius;
      const double facing = std::sqrt(std::max(0.0, 1 - across * across - along * along));
      const double light = 0.62 * facing - 0.38 * across - 0.46 * along;
      const double shine = 200 * std::pow(std::max(0.0, light), 24);
      for (std::size_t i = 0; i < 3; ++i) {
        const std::uint8_t lit = component(color[2 - i] * (0.52 + 0.5 * std::max(0.0, light)) + shine);
        pixel[i] = component(mix(pixel[i], VirtualOptics::exposed(lit, frame), inside));
      }
    }
  }
}

/// Drawn once for all scenes: it takes many times longer than a frame. The latest ones are kept.
std::shared_ptr<BgraPicture> sharedPortrait(const PortraitColors& colors, int width, int height) {
  struct Drawn {
    const PortraitColors* colors;
    std::shared_ptr<BgraPicture> picture;
  };
  constexpr std::size_t kMostKept = 4;
  static std::mutex mutex;
  static auto& latest = *new std::deque<Drawn>;
  const std::lock_guard lock(mutex);
  for (const Drawn& drawn : latest) {
    const BgraCanvas canvas = drawn.picture->canvas();
    if (drawn.colors == &colors && canvas.width == width && canvas.height == height) return drawn.picture;
  }
  auto picture = std::make_shared<BgraPicture>();
  picture->resize(width, height);
  drawPortrait(picture->canvas(), colors);
  latest.push_front({&colors, picture});
  if (latest.size() > kMostKept) latest.pop_back();
  return picture;
}

}  // namespace

struct SyntheticScene::Implementation {
  explicit Implementation(const Palette& usedPalette) : palette(usedPalette) {}

  const Palette& palette;
  VirtualOptics optics;
  std::shared_ptr<BgraPicture> backdrop;  // what does not move
  bool isBackdropUnseen = false;

  /// Whether the backdrop is another one then.
  bool drawBackdrop(int width, int height) {
    const double pixels = static_cast<double>(width) * height;
    const double share = std::min(1.0, std::sqrt(kMostPixelsDrawn / pixels));
    const auto drawn = [&](int length) { return std::max(1, static_cast<int>(std::lround(length * share))); };
    const BgraCanvas old = backdrop ? backdrop->canvas() : BgraCanvas{};
    const bool isNew = old.width != drawn(width) || old.height != drawn(height);
    if (isNew) backdrop = sharedPortrait(palette.portrait, drawn(width), drawn(height));
    return std::exchange(isBackdropUnseen, false) || isNew;
  }
  BgraCanvas seenBackdrop(int width, int height, const VirtualFrame& frame) {
    const bool isNew = drawBackdrop(width, height);
    return optics.see(backdrop->canvas(), isNew, width, height, frame);
  }
};

SyntheticScene::SyntheticScene(Position position)
    : implementation_(std::make_unique<Implementation>(position == Position::front ? kFront : kBack)) {}

SyntheticScene::~SyntheticScene() = default;

void SyntheticScene::prepare(int width, int height) {
  if (implementation_->drawBackdrop(width, height)) implementation_->isBackdropUnseen = true;
}

Expected<void> SyntheticScene::render(PixelBuffer& buffer, const VirtualFrame& frame) {
  const PixelBufferCanvas locked(buffer);
  const BgraCanvas canvas = locked.canvas();
  if (canvas.width < 16 || canvas.height < 16) {
    return failure(CaptureErrorCode::invalidConfiguration, "the drawn scene needs at least 16 by 16 pixels");
  }
  copyPicture(implementation_->seenBackdrop(canvas.width, canvas.height, frame), canvas);
  drawBall(canvas, frame, implementation_->palette.ball);
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
