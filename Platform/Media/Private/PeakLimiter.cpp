#include "Platform/Media/Private/PeakLimiter.h"

#include <algorithm>
#include <cmath>

namespace tavrel {

PeakLimiter::PeakLimiter(std::size_t channels, double sampleRate) : channels_(channels) {
  constexpr double kRecoverySeconds = 0.2;
  recovery_ = static_cast<float>(1 - std::exp(-1 / (kRecoverySeconds * sampleRate)));
}

void PeakLimiter::limit(std::span<float> samples) {
  for (; samples.size() >= channels_; samples = samples.subspan(channels_)) {
    const auto frame = samples.first(channels_);
    float peak = 0;
    for (const float sample : frame) peak = std::max(peak, std::abs(sample));
    gain_ += (1 - gain_) * recovery_;
    if (peak * gain_ > 1) gain_ = 1 / peak;
    for (float& sample : frame) sample *= gain_;
  }
}

}  // namespace tavrel
