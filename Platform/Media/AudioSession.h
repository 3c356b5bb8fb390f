#pragma once

#include <atomic>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// What the process knows about the sound hardware it records from. Any thread.
class TAVREL_API AudioSession {
 public:
  static constexpr double kDefaultSampleRate = 48000;

  static AudioSession& shared();

  /// Frames a second that the hardware runs at; 48000 until somebody who knows better sets it.
  double sampleRate() const { return sampleRate_; }
  double currentHardwareSampleRate() const { return sampleRate_; }
  /// Set by whoever opens the hardware. A rate that is not a positive number restores the default.
  void setSampleRate(double sampleRate);

 private:
  AudioSession() = default;

  std::atomic<double> sampleRate_ = kDefaultSampleRate;
};

}  // namespace tavrel
