#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"
#include "Platform/Graphics/PixelFormat.h"

namespace tavrel {

class PixelBlock;

/// An immutable copy-on-write view of a pixel buffer's bytes and attachments at one moment. The bytes are shared with
/// the buffer, which takes other memory before it changes them, and are reused once the snapshot is dropped. It may
/// outlive the buffer. Any thread.
class TAVREL_API PixelBufferSnapshot {
 public:
  PixelBufferSnapshot(const PixelBufferSnapshot&) = delete;
  PixelBufferSnapshot& operator=(const PixelBufferSnapshot&) = delete;
  ~PixelBufferSnapshot();

  std::size_t width() const { return layout_.width; }
  std::size_t height() const { return layout_.height; }
  PixelFormat format() const { return layout_.format; }
  const PixelLayout& layout() const { return layout_; }

  /// Stride of the first plane, in bytes.
  std::size_t bytesPerRow() const { return layout_.planes[0].bytesPerRow; }
  /// Top row of the first plane, aligned to 64 bytes.
  const std::uint8_t* bytes() const;
  std::size_t bytesPerRowOfPlane(std::size_t plane) const;
  /// nullptr if there is no such plane.
  const std::uint8_t* bytesOfPlane(std::size_t plane) const;

  std::optional<std::string> attachment(std::string_view key) const;

 private:
  friend class PixelBuffer;
  using Attachments = std::map<std::string, std::string, std::less<>>;

  PixelBufferSnapshot(const PixelLayout& layout, std::shared_ptr<PixelBlock> block, Attachments attachments);

  PixelLayout layout_;
  std::shared_ptr<PixelBlock> block_;
  Attachments attachments_;
};

}  // namespace tavrel
