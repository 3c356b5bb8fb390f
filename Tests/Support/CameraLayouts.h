#pragma once

#include <linux/videodev2.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "Platform/Capture/Private/FrameConversion.h"

namespace tavrel::test {

/// A layout of pictures by its definition, and what drivers and PipeWire call it.
struct CameraLayout {
  std::string name;  ///< PipeWire's; a video node's where PipeWire has none
  std::uint32_t v4l2 = 0;
  bool isInPipeWire = true;
  /// Planes, as "11 Y8/22 U8|V8": for so many columns and rows of pixels the words that they share; a word's fields
  /// from its highest bit on, as R, G, B, Y, U, V, K (gray) or X (anything), with their bits. Words are little-endian
  /// unless
  /// ">" is in front.
  const char* planes = "";
  std::vector<std::uint32_t> otherV4l2 = {};  ///< the same under other names
};

/// Whether a node with memory for each plane is what has the format.
bool isMultiPlanar(std::uint32_t v4l2);

/// All that are read, but for what is encoded.
const std::vector<CameraLayout>& cameraLayouts();

/// Pictures of four colours in a layout: one for each quarter, whose borders lie at even numbers.
class LayoutPicture {
 public:
  LayoutPicture(const CameraLayout& layout, int width, int height, FrameMatrix matrix, FrameRange range,
                int padding = 0);

  struct Plane {
    std::vector<std::uint8_t> bytes;
    std::size_t bytesPerRow = 0;
  };
  const std::vector<Plane>& planes() const { return planes_; }
  std::vector<std::uint8_t> block() const;  ///< all planes
  /// B, G, R of the quarter that a pixel is in, as they can be told from what was written.
  const std::array<double, 3>& colorAt(int x, int y) const {
    return colors_.at((y < middleY_ ? 0 : 2) + (x < middleX_ ? 0 : 1));
  }
  /// Empty if the converted picture has the colours, to 2 of 255; else where it has not.
  std::string differenceOf(const std::shared_ptr<PixelBuffer>& picture) const;

 private:
  int middleX_;
  int middleY_;
  std::vector<Plane> planes_;
  std::array<std::array<double, 3>, 4> colors_ = {};
};

/// The first picture that `kind`, which says how to read the layout, becomes otherwise: of several sizes, matrices and
/// ranges, in one block and in several, with rows padded or not. Empty if all are right.
std::string faultOfConversion(const CameraLayout& layout, const RawFrame& kind);

}  // namespace tavrel::test
