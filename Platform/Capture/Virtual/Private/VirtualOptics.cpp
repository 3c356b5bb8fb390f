#include "Platform/Capture/Virtual/Private/VirtualOptics.h"

#include <libyuv/planar_functions.h>

#include <algorithm>
#include <cmath>

#include "Platform/Imaging/PixelScaling.h"

namespace tavrel {
namespace {

void scale(const BgraCanvas& source, const BgraCanvas& destination) {
  const auto rowsOf = [](const BgraCanvas& canvas) {
    return PixelRows{canvas.bytes, canvas.bytesPerRow, canvas.width, canvas.height};
  };
  scalePixels(rowsOf(source), rowsOf(destination));
}

/// Scales the centre of `source` so that it fills `destination`, aspect kept, `zoom` times enlarged.
void scaleToFill(const BgraCanvas& source, double zoom, const BgraCanvas& destination) {
  const double fill = std::max(static_cast<double>(destination.width) / source.width,
                               static_cast<double>(destination.height) / source.height) *
                      std::max(1.0, zoom);
  const int width = std::clamp(static_cast<int>(std::lround(destination.width / fill)), 1, source.width);
  const int height = std::clamp(static_cast<int>(std::lround(destination.height / fill)), 1, source.height);
  const int left = (source.width - width) / 2;
  const int top = (source.height - height) / 2;
  scale({source.pixel(left, top), source.bytesPerRow, width, height}, destination);
}

bool haveSameControls(const VirtualFrame& left, const VirtualFrame& right) {
  return left.zoom == right.zoom && left.focus == right.focus && left.exposure == right.exposure &&
         left.torchLevel == right.torchLevel;
}

}  // namespace

BgraCanvas VirtualOptics::see(const BgraCanvas& source, bool isNew, int width, int height, const VirtualFrame& frame) {
  const BgraCanvas old = seen_.canvas();
  if (!isNew && old.width == width && old.height == height && haveSameControls(frame, controls_)) return old;
  seen_.resize(width, height);
  scaleToFill(source, frame.zoom, seen_.canvas());
  blur(frame);
  expose(frame);
  controls_ = frame;
  return seen_.canvas();
}

void VirtualOptics::blur(const VirtualFrame& frame) {
  const BgraCanvas canvas = seen_.canvas();
  const double radius = blurRadius(canvas.height, frame);
  if (radius < 0.5) return;
  const double factor = 1 + radius;
  small_.resize(std::max(1, static_cast<int>(canvas.width / factor)),
                std::max(1, static_cast<int>(canvas.height / factor)));
  scale(canvas, small_.canvas());
  scale(small_.canvas(), canvas);
}

void VirtualOptics::expose(const VirtualFrame& frame) {
  if (frame.exposure == 1 && frame.torchLevel == 0) return;
  std::array<std::uint8_t, std::size_t{256} * 4> table{};
  for (std::size_t i = 0; i < 256; ++i) {
    const std::uint8_t value = exposed(static_cast<std::uint8_t>(i), frame);
    std::fill_n(table.begin() + static_cast<std::ptrdiff_t>(i * 4), 3, value);
    table[i * 4 + 3] = 255;
  }
  const BgraCanvas canvas = seen_.canvas();
  libyuv::ARGBColorTable(canvas.bytes, static_cast<int>(canvas.bytesPerRow), table.data(), 0, 0, canvas.width,
                         canvas.height);
}

double VirtualOptics::blurRadius(int height, const VirtualFrame& frame) {
  return std::clamp(1 - frame.focus, 0.0, 1.0) * std::max(2.0, height / 48.0);
}

std::uint8_t VirtualOptics::exposed(std::uint8_t component, const VirtualFrame& frame) {
  const double torch = std::clamp(frame.torchLevel, 0.0, 1.0);
  const double value = component * std::max(0.0, frame.exposure) * (1 + 0.5 * torch) + 24 * torch;
  return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

}  // namespace tavrel
