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

/// Where pixels lie in a device's memory: dma-bufs, in the terms of the kernel's drm_fourcc.h.
struct DeviceMemory {
  static constexpr std::uint64_t kLinear = 0;
  /// An arrangement that only the driver knows (DRM_FORMAT_MOD_INVALID).
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

/// A pixel buffer in a device's memory, which a camera, for instance, writes and GL textures show in place. It is lent
/// again and again, with one picture at a time, and keeps its textures.
///
/// Its holders see a 'BGRA' buffer. Nothing is copied until one of them asks for the bytes, which are then converted
/// from the memory, once for each picture; writing them leaves the memory as it is. Pictures in two planes are drawn
/// from those (`PixelBuffer::planesOf`). Any thread, except `lend` and `end`, which are the lender's.
class TAVREL_API LentPixelBuffer : public std::enable_shared_from_this<LentPixelBuffer> {
 public:
  struct Picture {
    /// Its pixels, or Y and the pairs of Cb and Cr at half the size.
    std::array<DeviceMemory, 2> planes = {};
    PixelFormat planarFormat = PixelFormat::biPlanar420VideoRange;  ///< of two planes
    /// Writes the bytes of `layout`, which is opaque 'BGRA' of the picture's size, or that of the planes; returns false
    /// on failure. Called on any thread, but not after `end`. Without it the GPU reads back.
    std::function<bool(const PixelLayout& layout, std::uint8_t* bytes)> read = {};
    bool hasPlanes() const { return planes[1].format != 0; }
  };

  /// The modifiers with which the display accepts memory of `format` for textures: none if it accepts none, before a
  /// display was chosen and with `TAVREL_ZERO_COPY=0`; `kImplicit` if the display cannot be asked.
  static std::vector<std::uint64_t> modifiersOf(std::uint32_t format);

  /// Fails if the display does not accept the memory.
  static Expected<std::shared_ptr<LentPixelBuffer>> create(Picture picture);

  LentPixelBuffer(const LentPixelBuffer&) = delete;
  LentPixelBuffer& operator=(const LentPixelBuffer&) = delete;
  ~LentPixelBuffer();

  const std::array<DeviceMemory, 2>& planes() const { return planes_; }

  /// The buffer, with the picture that is in the memory now, lent until its last holder releases it. Do not call it
  /// while `isOut`.
  std::shared_ptr<PixelBuffer> lend();
  /// Whether the memory must not be written: the picture is held, or the GPU has yet to read it.
  bool isOut() const;
  /// Announces that the memory goes away; holders of the picture keep a copy.
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
