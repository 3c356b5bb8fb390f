#include "Support/FilterReference.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace tavrel::test {
namespace {

Rgba mixed(const Rgba& first, const Rgba& second, double fraction) {
  Rgba result;
  for (std::size_t i = 0; i < result.size(); ++i) result[i] = first[i] + (second[i] - first[i]) * fraction;
  return result;
}

}  // namespace

Picture noisePicture(int width, int height, bool hasAlpha, int darkest) {
  std::uint32_t state = 2463534242;
  const auto next = [&] {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return static_cast<int>(state % 256);
  };
  return {width, height, [&](int x, int y) {
            const bool isBlock = (x / 5 + y / 4) % 2 == 0;
            const int level = isBlock ? 200 : 60;
            const auto component = [&](int shift) {
              return std::clamp(level + shift + (next() - 128) / 4, darkest, 255);
            };
            Pixel pixel{component(40), component(0), component(-30), 255};
            if (hasAlpha) pixel.a = next();
            return pixel;
          }};
}

ReferencePicture::ReferencePicture(int pictureWidth, int pictureHeight, const std::function<Rgba(int x, int y)>& color)
    : width(pictureWidth), height(pictureHeight) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) colors.push_back(color(x, y));
  }
}

ReferencePicture::ReferencePicture(const Picture& picture)
    : ReferencePicture(picture.width, picture.height, [&](int x, int y) {
        const Pixel& pixel = picture.at(x, y);
        return Rgba{pixel.r / 255.0, pixel.g / 255.0, pixel.b / 255.0, pixel.a / 255.0};
      }) {}

const Rgba& ReferencePicture::clampedAt(int x, int y) const {
  x = std::clamp(x, 0, width - 1);
  y = std::clamp(y, 0, height - 1);
  return colors[static_cast<std::size_t>(y * width + x)];
}

Rgba ReferencePicture::sampled(double s, double t) const {
  const double x = s * width - 0.5;
  const double y = t * height - 0.5;
  const int left = static_cast<int>(std::floor(x));
  const int top = static_cast<int>(std::floor(y));
  const Rgba upper = mixed(clampedAt(left, top), clampedAt(left + 1, top), x - left);
  const Rgba lower = mixed(clampedAt(left, top + 1), clampedAt(left + 1, top + 1), x - left);
  return mixed(upper, lower, y - top);
}

ReferencePicture ReferencePicture::turned(TavrelGPUImageRotationMode mode) const {
  const int right = width - 1;
  const int bottom = height - 1;
  switch (mode) {
    case kTavrelGPUImageRotateLeft: return {height, width, [&](int x, int y) { return clampedAt(right - y, x); }};
    case kTavrelGPUImageRotateRight: return {height, width, [&](int x, int y) { return clampedAt(y, bottom - x); }};
    case kTavrelGPUImageFlipVertical: return {width, height, [&](int x, int y) { return clampedAt(x, bottom - y); }};
    case kTavrelGPUImageFlipHorizontal: return {width, height, [&](int x, int y) { return clampedAt(right - x, y); }};
    case kTavrelGPUImageRotateRightFlipVertical: return {height, width, [&](int x, int y) { return clampedAt(y, x); }};
    case kTavrelGPUImageRotateRightFlipHorizontal:
      return {height, width, [&](int x, int y) { return clampedAt(right - y, bottom - x); }};
    case kTavrelGPUImageRotate180:
      return {width, height, [&](int x, int y) { return clampedAt(right - x, bottom - y); }};
    default: return *this;
  }
}

PictureError errorOf(const Picture& picture, const ReferencePicture& reference) {
  if (picture.width != reference.width || picture.height != reference.height) return {1e6, 1e6};
  PictureError error;
  double squares = 0;
  for (std::size_t i = 0; i < picture.pixels.size(); ++i) {
    const Pixel& pixel = picture.pixels[i];
    const int components[] = {pixel.r, pixel.g, pixel.b, pixel.a};
    for (std::size_t c = 0; c < 4; ++c) {
      const double difference = components[c] - std::clamp(reference.colors[i][c], 0.0, 1.0) * 255;
      error.largest = std::max(error.largest, std::abs(difference));
      squares += difference * difference;
    }
  }
  error.rms = std::sqrt(squares / static_cast<double>(picture.pixels.size() * 4));
  return error;
}

::testing::AssertionResult matches(const Picture& picture, const ReferencePicture& reference) {
  const PictureError error = errorOf(picture, reference);
  if (error.largest <= 2 && error.rms <= 0.6) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << picture.width << "x" << picture.height << " picture, expected "
                                       << reference.width << "x" << reference.height << ", off by up to "
                                       << error.largest << "/255, RMS " << error.rms << "/255";
}

}  // namespace tavrel::test
