#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Graphics/PixelBuffer.h"

namespace tavrel {

class LentBacking;

/// Where pixels lie in memory of a device: dma-bufs, in the terms of the kernel's drm_fourcc.h.
struct DeviceMemory {
  static constexpr std::uint64_t kLinear = 0;
  /// The device's own arrangement, which nobody has named (DRM_FORMAT_MOD_INVALID).
  static constexpr std::uint64_t kImplicit = 0x00FFFFFFFFFFFFFF;

  struct Part {
    int fileDescriptor = -1;  ///< borrowed
    std::uint32_t offset = 0;
    std::uint32_t bytesPerRow = 0;
    bool operator==(const Part&) const = default;
  };

  std::uint32_t format = 0;  ///< four-character code; 0: there is none
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint64_t modifier = kImplicit;
  std::array<Part, 3> parts = {};  ///< those with a file descriptor count; some modifiers have more than one
  bool operator==(const DeviceMemory&) const = default;
};

/// A pixel buffer whose picture somebody else writes, such as a camera, in memory of a device that GL textures show in
/// place. It is handed out again and again, with one picture at a time, and keeps its textures.
///
/// To all it is a 'BGRA' buffer. Nothing is copied until somebody asks for its bytes, which are then made of the
/// memory, once for each picture; who writes them has them for himself. Pictures in two planes are drawn from those
/// (`PixelBuffer::planesOf`). All but `lend` and `end`, which are the lender's: any thread.
class TAVREL_API LentPixelBuffer : public std::enable_shared_from_this<LentPixelBuffer> {
 public:
  struct Picture {
    /// Its pixels, or Y and the pairs of Cb and Cr at half the size.
    std::array<DeviceMemory, 2> planes = {};
    PixelFormat planarFormat = PixelFormat::biPlanar420VideoRange;  ///< of two planes
    /// Makes the bytes of `layout`, which is opaque 'BGRA' of the picture's size, or that of the planes; false if that
    /// cannot be done. Any thread; not after `end`. Without it the GPU reads back.
    std::function<bool(const PixelLayout& layout, std::uint8_t* bytes)> read = {};
    bool hasPlanes() const { return planes[1].format != 0; }
  };

  /// The modifiers with which the display takes memory of a format for textures. Empty where it takes none, and as long
  /// as no display was chosen; `TAVREL_ZERO_COPY=0` turns all off. A display that cannot be asked has `kImplicit`.
  static std::vector<std::uint64_t> modifiersOf(std::uint32_t format);

  /// Fails where the display does not take the memory.
  static Expected<std::shared_ptr<LentPixelBuffer>> create(Picture picture);

  LentPixelBuffer(const LentPixelBuffer&) = delete;
  LentPixelBuffer& operator=(const LentPixelBuffer&) = delete;
  ~LentPixelBuffer();

  const std::array<DeviceMemory, 2>& planes() const { return planes_; }

  /// The buffer with the picture that is in the memory now, until its last holder lets it go. Not while `isOut`.
  std::shared_ptr<PixelBuffer> lend();
  /// Whether the memory is not to be written: somebody holds the picture, or the GPU has still to read it.
  bool isOut() const;
  /// The memory goes away: whoever holds the picture keeps a copy.
  void end();

 private:
  LentPixelBuffer() = default;
  static std::unique_ptr<PixelBuffer> makeBuffer(std::unique_ptr<LentBacking> backing, LentBacking*& observed);

  std::array<DeviceMemory, 2> planes_;
  std::unique_ptr<PixelBuffer> buffer_;
  std::array<LentBacking*, 2> backings_{};  // the buffer's and that of its planes, if any
  std::atomic<bool> isHeld_ = false;
};

}  // namespace tavrel
