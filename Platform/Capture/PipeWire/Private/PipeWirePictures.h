#pragma once

#include <pipewire/pipewire.h>

#include <array>
#include <map>
#include <memory>
#include <vector>

#include "Platform/Capture/PipeWire/Private/PipeWireFormats.h"
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
  void remove(const pw_buffer& buffer) { mappings_.erase(&buffer); }

  /// Fails with `damagedFrame`, or without memory.
  Expected<std::shared_ptr<SampleBuffer>> pictureOf(const pw_buffer& buffer, const SampleTiming& timing);

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
  Expected<std::shared_ptr<PixelBuffer>> convert(const spa_buffer& buffer);

  std::map<const pw_buffer*, std::unique_ptr<Mapping>> mappings_;
  RawFrame frame_;
  bool hasModifier_ = false;
  std::shared_ptr<PixelBufferPool> pool_;
  std::shared_ptr<PixelBufferPool> partPool_;  // of the size that metadata cut out last
  FrameConverter converter_;
  PictureTurner turner_;
};

}  // namespace tavrel
