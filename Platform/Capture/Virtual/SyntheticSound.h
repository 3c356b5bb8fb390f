#pragma once

#include <cstddef>
#include <vector>

#include "Platform/Capture/Virtual/VirtualSound.h"

namespace tavrel {

/// A quiet 220 Hz tone with noise, and a loud 1 kHz beep of 0.1 s at the start of every second, when `SyntheticScene`
/// flashes. The samples are the same on every run.
class TAVREL_API SyntheticSound : public VirtualSound {
 public:
  explicit SyntheticSound(int sampleRate);

  Expected<void> render(std::span<float> samples, std::uint64_t first) override;

  /// Sample numbers at which beeps begin in one channel of a recording, exact to about 1 ms.
  static std::vector<std::size_t> findBeepOnsets(std::span<const float> samples, int sampleRate);

 private:
  int sampleRate_;
};

}  // namespace tavrel
