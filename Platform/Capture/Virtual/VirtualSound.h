#pragma once

#include <cstdint>
#include <span>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// What a virtual microphone hears: samples in -1 … 1, the channels in turn, at a rate fixed at creation. One thread at
/// a time.
class TAVREL_API VirtualSound {
 public:
  virtual ~VirtualSound() = default;

  /// Fixed at creation.
  virtual int channelCount() const { return 1; }
  /// Fills `samples`, `channelCount` for each moment, with the sound from moment number `first` on, counted from the
  /// scene's start. Calls go forward in time and may skip moments.
  virtual Expected<void> render(std::span<float> samples, std::uint64_t first) = 0;
};

}  // namespace tavrel
