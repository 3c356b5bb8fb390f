#pragma once

#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Platform/Capture/PipeWire/Private/PipeWireFormats.h"
#include "Platform/Capture/PipeWire/Private/PipeWireLoans.h"
#include "Platform/Capture/Private/PictureTurner.h"
#include "Platform/Graphics/PixelBufferPool.h"

namespace tavrel {

/// Makes pictures of the buffers of a camera's stream, in any kind of memory: of the part that the buffer's metadata
/// name, and upright as they tell. On the stream's thread.
class PipeWirePictures {
 public:
  /// Pictures of this layout come from now on.
  Expected<void> begin(const PipeWireAgreement& agreed);
  /// What to ask for once a layout was agreed on: kinds of memory, and metadata.
  std::vector<const spa_pod*> parameters(spa_pod_builder& builder) const;

  /// A buffer that the stream has from now on, and no longer has. What the stream has not mapped is mapped here.
  void add(const pw_buffer& buffer);
  void remove(const pw_buffer& buffer);
  /// All of them go.
  void end();

  /// Fails with `damagedFrame`, or without memory. A picture that the GPU takes in place holds the buffer.
  Expected<std::shared_ptr<SampleBuffer>> pictureOf(pw_buffer& buffer, const SampleTiming& timing);
  /// Which buffers are held, and which are no more.
  PipeWireLoans& loans() { return loans_; }
  /// Whether the memory is such as the CPU cannot read.
  bool isOnlyForGPU() const { return modifier_ && !isLinear(*modifier_); }
  /// Whether the last one was taken in place.
  bool isInPlace() const { return isInPlace_; }

 private:
  /// Memory that the stream has not mapped, one block for each plane.
  struct Mapping {
    struct Block {
      void* address = nullptr;
      std::size_t length = 0;
    };
    std::array<Block, 3> blocks;

    Mapping() = default;
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;
    ~Mapping();
  };

  RawFrame::Plane planeOf(const pw_buffer& buffer, std::uint32_t number) const;
  bool isWhole(const spa_region& part) const {
    return std::cmp_equal(part.size.width, frame_.width) && std::cmp_equal(part.size.height, frame_.height);
  }
  PipeWireLoans::Blocks blocksOf(const pw_buffer& buffer) const;
  Expected<std::shared_ptr<PixelBuffer>> convert(const pw_buffer& buffer);

  std::map<const pw_buffer*, std::unique_ptr<Mapping>> mappings_;
  RawFrame frame_;
  std::optional<std::uint64_t> modifier_;
  PipeWireLoans loans_;
  bool isInPlace_ = false;
  std::shared_ptr<PixelBufferPool> pool_;
  std::shared_ptr<PixelBufferPool> partPool_;  // of the size that metadata cut out last
  FrameConverter converter_;
  PictureTurner turner_;
};

}  // namespace tavrel
