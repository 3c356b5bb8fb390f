#pragma once

#include <memory>

#include "Platform/Foundation/Export.h"

namespace tavrel {

class SampleBuffer;

/// A consumer of audio, such as the movie writer.
class TAVREL_API TavrelGPUImageAudioTarget {
 public:
  virtual ~TavrelGPUImageAudioTarget() = default;

  virtual bool hasAudioTrack() const = 0;
  virtual void setHasAudioTrack(bool newValue) = 0;
  /// Takes an audio buffer. Any thread, one at a time.
  virtual void processAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer) = 0;
};

}  // namespace tavrel
