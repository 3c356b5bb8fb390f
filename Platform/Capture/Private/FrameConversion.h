#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Platform/Capture/Private/PackedPixels.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Graphics/PixelBuffer.h"

namespace tavrel {

/// How a camera's pictures lie in memory.
enum class FrameLayout {
  bgra,  // in the order of the bytes, as those that follow
  rgba,
  argb,
  abgr,
  bgr24,
  rgb24,
  packed,  ///< as `RawFrame::packed` says
  yuyv,
  uyvy,
  yvyu,
  vyuy,
  nv12,
  nv21,
  nv16,
  nv61,
  nv24,
  nv42,
  i420,
  yv12,
  i422,
  yv16,  ///< 4:2:2 with Cr before Cb
  i444,
  yv24,  ///< 4:4:4 with Cr before Cb
  gbr,   ///< planes of green, blue and red
  p010,
  i010,  ///< i420 of 10 bits in words, as are the next two
  i210,
  i410,
  gray8,
  mjpeg,
  h264  ///< a picture of the stream, as the bytes between two start codes or more (Annex B)
};

/// What the numbers of Y Cb Cr mean.
enum class FrameMatrix { bt601, bt709, bt2020 };

/// Where black and white are. What is not said is the rule: full for colours and gray, limited for Y Cb Cr.
enum class FrameRange { unsaid, limited, full };

/// A picture as a camera delivers it.
struct RawFrame {
  FrameLayout layout = FrameLayout::bgra;
  FrameMatrix matrix = FrameMatrix::bt601;
  FrameRange range = FrameRange::unsaid;
  PackedPixel packed = {};
  bool isBottomUp = false;  ///< the last row comes first
  int width = 0;
  int height = 0;
  const std::uint8_t* bytes = nullptr;
  std::size_t byteCount = 0;
  /// Of the first plane; planes follow each other without gaps, and chroma rows have the stride that belongs to it.
  std::size_t bytesPerRow = 0;
  /// Where the second and third plane have a block of their own.
  struct Plane {
    const std::uint8_t* bytes = nullptr;
    std::size_t byteCount = 0;
    std::size_t bytesPerRow = 0;
  };
  std::array<Plane, 2> chroma = {};
};

class H264Decoder;

/// Turns camera pictures into opaque BGRA, by libyuv, by libjpeg-turbo for JPEG, and by libavcodec for H.264, whose
/// pictures come in their order, from a key picture on. One thread at a time.
class FrameConverter {
 public:
  FrameConverter();
  ~FrameConverter();

  /// Fills `picture`, which has the frame's size. Fails with `damagedFrame` when the frame is too short or damaged.
  Expected<void> convert(const RawFrame& frame, PixelBuffer& picture);
  Expected<void> convert(const RawFrame& frame, std::uint8_t* target, std::size_t stride);
  using Planes = std::array<RawFrame::Plane, 3>;
  /// Where the planes of a frame are. Fails with `damagedFrame` when it is too short.
  static Expected<Planes> planesOf(const RawFrame& frame);
  /// What comes next belongs to another stream.
  void forget();
  /// The fewest bytes of a row of the first plane; 0 for JPEG and H.264.
  static std::size_t tightRow(const RawFrame& frame);
  /// Takes the rows of a frame in one block to be padded to four bytes, each plane's by themselves, as GStreamer's are,
  /// where the length of the block says so.
  static void findPaddedRows(RawFrame& frame);
  /// The fewest bytes of a frame in one block; 1 for JPEG and H.264.
  static std::size_t leastByteCount(const RawFrame& frame);

 private:
  void convertPlanes(const RawFrame& frame, const Planes& planes, std::uint8_t* target, int targetStride);
  /// Memory for Y, Cb and Cr in planes of full height, by which packed layouts become colours.
  Planes planar(int width, int height, bool isChromaHalfWide = true);
  /// Of planes of words, which begin `above` bits below the highest, in that memory.
  Planes narrowPlanes(const RawFrame& frame, const Planes& planes, int above);
  Expected<void> decodeJpeg(const RawFrame& frame, std::uint8_t* target, std::size_t stride);

  Expected<void> decodeH264(const RawFrame& frame, std::uint8_t* target, int stride);

  void* jpeg_ = nullptr;
  std::unique_ptr<H264Decoder> h264_;
  std::vector<std::uint8_t> memory_;  // of the planes
};

}  // namespace tavrel
