#pragma once

#include <cstdint>
#include <span>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// What a virtual microphone hears: one channel of samples in -1 … 1, at a rate fixed at creation. One thread at a
/// time.
class TAVREL_API VirtualSound {
 public:
  virtual ~VirtualSound() = default;

  /// Fills `samples` with the sound from sample number `first` on, counted from the scene's start. Calls go forward in
  /// time and may skip samples.
  virtual Expected<void> render(std::span<float> samples, std::uint64_t first) = 0;
};

}  // namespace tavrel
