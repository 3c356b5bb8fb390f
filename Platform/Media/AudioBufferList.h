#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/Media/AudioFormat.h"

namespace tavrel {

/// PCM in memory owned by an `AudioBufferList`.
struct AudioBuffer {
  std::uint32_t channelCount = 0;  ///< interleaved in `data`
  std::size_t byteSize = 0;
  void* data = nullptr;  ///< writable, aligned to 16 bytes
};

/// The PCM of a sample buffer: one buffer if interleaved, else one per channel. Owns the memory, which all holders of
/// the list share. Not synchronised.
class TAVREL_API AudioBufferList {
 public:
  /// Creates `frameCount` frames of silence.
  static std::shared_ptr<AudioBufferList> create(const AudioFormat& format, std::size_t frameCount);

  std::vector<AudioBuffer>& buffers() { return buffers_; }
  const std::vector<AudioBuffer>& buffers() const { return buffers_; }

 private:
  struct Free {
    void operator()(void* memory) const;
  };

  AudioBufferList() = default;

  std::unique_ptr<void, Free> memory_;
  std::vector<AudioBuffer> buffers_;
};

}  // namespace tavrel
