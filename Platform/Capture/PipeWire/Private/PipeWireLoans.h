#pragma once

#include <pipewire/pipewire.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "Platform/Capture/PipeWire/Private/PipeWireFormats.h"
#include "Platform/Graphics/LentPixelBuffer.h"

namespace tavrel {

/// The modifiers with which the GPU takes such pictures in place; empty when it does not.
std::vector<std::uint64_t> importableModifiers(FrameLayout layout);
/// Whether the CPU reads such memory, too.
inline bool isLinear(std::uint64_t modifier) {
  return modifier == DeviceMemory::kLinear || modifier == DeviceMemory::kImplicit;
}

/// A camera's buffers that the GPU reads where they are: pictures that hold their buffer until nobody uses them any
/// more. Of all buffers some stay with the camera, whatever becomes of the pictures. On the stream's thread.
class PipeWireLoans {
 public:
  ~PipeWireLoans();

  /// Pictures of this layout come from now on.
  void begin(const PipeWireAgreement& agreed);
  void add(const pw_buffer& buffer) { loans_[&buffer] = {}; }
  /// The stream's memory goes: whoever has a picture in it keeps a copy.
  void remove(const pw_buffer& buffer);

  /// A block of memory as the stream, or we, have mapped it.
  struct Block {
    const std::uint8_t* bytes = nullptr;  ///< nullptr: it is not mapped
    std::size_t length = 0;
    std::size_t offset = 0;  ///< of the first byte, in the file
  };
  using Blocks = std::array<Block, 3>;
  /// The picture of a buffer, in place. nullptr when it is to be copied: the GPU does not take it, or too few buffers
  /// would be left to the camera. `frame` has its bytes where they are mapped.
  std::shared_ptr<PixelBuffer> lend(pw_buffer& buffer, const RawFrame& frame, const Blocks& blocks);
  /// A copy of what only the GPU can read; false when even that cannot.
  bool copy(const pw_buffer& buffer, const RawFrame& frame, PixelBuffer& picture);

  /// Whether the GPU refuses what it had said that it takes.
  bool isRefused() const { return isRefused_; }
  bool isOut(const pw_buffer& buffer) const;
  /// Buffers that are free again, to be given back to the camera.
  std::vector<pw_buffer*> takeReturned();

 private:
  struct Loan {
    std::shared_ptr<LentPixelBuffer> picture;
    pw_buffer* out = nullptr;  // while somebody has the picture
  };

  bool hasSpareBuffers() const;
  bool prepare(Loan& loan, const pw_buffer& buffer, const RawFrame& frame, const Blocks& blocks);
  std::array<DeviceMemory, 2> memoryOf(const pw_buffer& buffer, const RawFrame& frame, const Blocks& blocks) const;

  std::map<const pw_buffer*, Loan> loans_;
  std::uint64_t modifier_ = DeviceMemory::kImplicit;
  bool isImported_ = false;
  bool isRefused_ = false;
};

}  // namespace tavrel
