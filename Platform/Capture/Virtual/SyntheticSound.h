#pragma once

#include <cstddef>
#include <vector>

#include "Platform/Capture/Virtual/VirtualSound.h"

namespace tavrel {

/// A quiet 220 Hz tone with noise, and a loud beep of 1 kHz, 0.1 s long, that begins with the first sample of each
/// whole second: where the synthetic scene flashes. The same samples on every run.
class TAVREL_API SyntheticSound : public VirtualSound {
 public:
  explicit SyntheticSound(int sampleRate);

  Expected<void> render(std::span<float> samples, std::uint64_t first) override;

  /// Where beeps begin in a recording, as sample numbers, to about a millisecond. `samples` is one channel.
  static std::vector<std::size_t> findBeepOnsets(std::span<const float> samples, int sampleRate);

 private:
  int sampleRate_;
};

}  // namespace tavrel
