#include "Platform/Capture/Virtual/Private/SyntheticMarks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "Platform/Imaging/PixelFont.h"

namespace tavrel {
namespace {

constexpr int kCells = 32;
constexpr std::uint32_t kNumberMask = 0xFFFFFF;
/// Below this difference between the brightest and the darkest cell there is no counter.
constexpr double kLeastContrast = 48;
constexpr double kFlashSeconds = 0.1;

struct CounterGeometry {
  int columns;
  int rows;
  int cellWidth;
  int cellHeight;

  CounterGeometry(int width, int height)
      : columns(width >= 256   ? 32
                : width >= 128 ? 16
                               : 8),
        rows(kCells / columns),
        cellWidth(width / columns),
        cellHeight(std::max(2, std::min(cellWidth, height / 24))) {}

  PixelRect cell(int index) const {
    return {index % columns * cellWidth, index / columns * cellHeight, cellWidth, cellHeight};
  }
};

std::uint32_t checkSum(std::uint32_t number) { return ((number * 0x9E3779B1U) >> 24) ^ 0xA5U; }

PixelRect flashRect(const BgraCanvas& canvas) {
  const int width = std::max(4, canvas.width / 6);
  const int height = std::max(4, canvas.height / 6);
  return {canvas.width - width, canvas.height - height, width, height};
}

void drawGlyph(const BgraCanvas& canvas, char character, int left, int top, int scale) {
  pixel_font::drawGlyph(character, [&](int column, int row) {
    fillRect(canvas, {left + column * scale, top + row * scale, scale, scale}, kWhite);
  });
}

}  // namespace

void drawFrameCounter(const BgraCanvas& canvas, std::uint32_t frameNumber) {
  const CounterGeometry geometry(canvas.width, canvas.height);
  const std::uint32_t number = frameNumber & kNumberMask;
  const std::uint32_t bits = number << 8 | checkSum(number);
  for (int i = 0; i < kCells; ++i) {
    fillRect(canvas, geometry.cell(i), (bits >> (kCells - 1 - i) & 1) != 0 ? kWhite : kBlack);
  }
}

std::optional<std::uint32_t> readFrameCounter(const BgraCanvas& canvas) {
  if (canvas.width < 16 || canvas.height < 16) return std::nullopt;
  const CounterGeometry geometry(canvas.width, canvas.height);
  std::array<double, kCells> brightness{};
  for (int i = 0; i < kCells; ++i) {
    brightness[static_cast<std::size_t>(i)] = meanBrightnessOfMiddle(canvas, geometry.cell(i));
  }
  const auto [darkest, brightest] = std::minmax_element(brightness.begin(), brightness.end());
  if (*brightest - *darkest < kLeastContrast) return std::nullopt;
  const double threshold = (*brightest + *darkest) / 2;
  std::uint32_t bits = 0;
  for (const double cell : brightness) bits = bits << 1 | (cell > threshold ? 1U : 0U);
  const std::uint32_t number = bits >> 8;
  if ((bits & 0xFF) != checkSum(number)) return std::nullopt;
  return number;
}

void drawFlash(const BgraCanvas& canvas, bool lit) { fillRect(canvas, flashRect(canvas), lit ? kWhite : kBlack); }

bool readFlash(const BgraCanvas& canvas) {
  if (canvas.width < 16 || canvas.height < 16) return false;
  return meanBrightnessOfMiddle(canvas, flashRect(canvas)) > 128;
}

bool flashIsLit(double sceneTime, double frameDuration) {
  // The small amount keeps a frame exactly between two seconds' choices on one side, whatever the rounding of its time.
  const double shifted = sceneTime + frameDuration / 2 + 1e-7;
  return shifted - std::floor(shifted) < std::max(kFlashSeconds, frameDuration) - 1e-9;
}

void drawClock(const BgraCanvas& canvas, double sceneTime) {
  const auto milliseconds = static_cast<std::int64_t>(std::llround(std::max(0.0, sceneTime) * 1000));
  std::array<char, 32> text{};
  const auto end = fmt::format_to_n(text.data(), text.size(), "{:02}:{:02}.{:03}", milliseconds / 60000,
                                    milliseconds / 1000 % 60, milliseconds % 1000);
  const int length = static_cast<int>(end.size);
  const CounterGeometry counter(canvas.width, canvas.height);
  const int scale =
      std::min(std::max(1, canvas.height / 180), canvas.width / ((pixel_font::kGlyphWidth + 1) * length + 1));
  const int top = counter.rows * counter.cellHeight;
  const int boxHeight = (pixel_font::kGlyphHeight + 2) * scale;
  if (scale < 1 || top + boxHeight > flashRect(canvas).y) return;
  fillRect(canvas, {0, top, ((pixel_font::kGlyphWidth + 1) * length + 1) * scale, boxHeight}, kBlack);
  for (int i = 0; i < length; ++i) {
    drawGlyph(canvas, text[static_cast<std::size_t>(i)], scale * (1 + i * (pixel_font::kGlyphWidth + 1)), top + scale,
              scale);
  }
}

}  // namespace tavrel
