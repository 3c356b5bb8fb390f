#pragma once

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Support/GraphTestSupport.h"

namespace tavrel::test {

/// The same filter, of a class that the library does not know and that therefore draws by itself.
template <typename Filter>
class Alone : public Filter {
 public:
  using Filter::Filter;
};

using Node = std::shared_ptr<TavrelGPUImageFilter>;

/// The same filter twice: to be drawn with others, and alone.
struct Pair {
  Node fused, alone;
  std::vector<std::shared_ptr<TavrelGPUImagePicture>> pictures = {};
};

template <typename Filter, typename... Arguments>
Pair make(const std::function<void(Filter&)>& set, Arguments... arguments) {
  const auto fused = std::make_shared<Filter>(arguments...);
  const auto alone = std::make_shared<Alone<Filter>>(arguments...);
  set(*fused);
  set(*alone);
  return {fused, alone};
}

/// Gives both of them the picture as second input, at once or placed on a frame of `size`.
inline Pair withSecond(Pair pair, const std::shared_ptr<Image>& image, Size size = {}, const Rect& place = {}) {
  for (const Node& filter : {pair.fused, pair.alone}) {
    const auto& picture = pair.pictures.emplace_back(std::make_shared<TavrelGPUImagePicture>(image));
    if (isZero(size)) {
      picture->addTarget(filter, 1);
    } else {
      const auto placement = std::make_shared<TavrelGPUImagePlacementFilter>();
      placement->setAffineTransform(TavrelGetTransform(place, size, 0.3F));
      placement->forceProcessingAtSize(size);
      picture->addTarget(placement);
      placement->addTarget(filter, 1);
    }
    picture->processImage();
  }
  return pair;
}

/// A table that bends colours, so that an error of a step before it grows.
inline std::shared_ptr<Image> table() {
  return imageOf({512, 512, [](int x, int y) {
                    const int r = x % 64, g = y % 64, b = y / 64 * 8 + x / 64;
                    return Pixel{r * r / 16, 255 - g * 4, std::min(255, b * 6)};
                  }});
}

/// Curves before a lattice, which mix colours without making steps larger.
inline std::shared_ptr<const ColorTable> colorTable() {
  const auto file = std::filesystem::temp_directory_path() / ("tavrel-fusion-" + std::to_string(getpid()) + ".cube");
  std::ofstream text(file);
  text << "LUT_1D_SIZE 5\nLUT_3D_SIZE 4\n";
  for (const double x : {0.0, 0.25, 0.5, 0.75, 1.0})
    text << x * (1 - x / 4) << ' ' << x * x / 2 << ' ' << 1 - x << '\n';
  for (int i = 0; i < 64; ++i) {
    const auto level = [i](int step) { return i / step % 4 / 3.0; };
    text << level(1) * level(4) / 2 << ' ' << 1 - level(4) << ' ' << (level(16) - level(1)) / 2 + 0.5 << '\n';
  }
  text.close();
  const auto lookup = TavrelLookupTableFromFile(file);
  std::filesystem::remove(file);
  return lookup ? lookup->table : nullptr;
}

inline std::shared_ptr<Image> sticker() {
  return imageOf({9, 7, [](int x, int y) { return Pixel{20 * x, 30 * y, 200, 25 * x + 10 * y}; }});
}

/// What the chain makes of a frame of a moving picture.
inline Picture shown(const Picture& source, const Node& first, const Node& last) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  input->addTarget(first, 0);
  last->useNextFrameForImageCapture();
  input->processCVPixelBuffer(pixelBufferOf(source), MediaTime::make(1, 30), true);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  const std::shared_ptr<Image> image = last->newCGImageFromCurrentlyProcessedOutput();
  input->removeAllTargets();
  return image ? pictureOf(*image) : Picture();
}

inline constexpr const char* kTintShader =
    "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
    "vec4(texture2D(inputImageTexture, textureCoordinate).r, 0.0, 1.0, 1.0); }";

}  // namespace tavrel::test
