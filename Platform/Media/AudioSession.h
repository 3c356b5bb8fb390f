#pragma once

#include <atomic>
#include <functional>
#include <mutex>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// What the process does with sound.
enum class AudioSessionCategory { ambient, record, playAndRecord };

/// Bits that go with a category.
enum AudioSessionCategoryOptions : unsigned {
  kAudioSessionCategoryOptionNone = 0,
  kAudioSessionCategoryOptionDefaultToSpeaker = 0x8,
  kAudioSessionCategoryOptionAllowBluetoothA2DP = 0x20,
};

/// What the process knows about the sound hardware it records from, and what it told the system about its use. Linux's
/// sound services route by stream, so that a category is kept for readers and changes no routing by itself. Any thread.
class TAVREL_API AudioSession {
 public:
  static constexpr double kDefaultSampleRate = 48000;
  /// Carries a category out; fails with what the sound service said.
  using CategoryHandler = std::function<Expected<void>(AudioSessionCategory category, unsigned options)>;

  static AudioSession& shared();

  /// Frames a second that the hardware runs at; 48000 until somebody who knows better sets it.
  double sampleRate() const { return sampleRate_; }
  double currentHardwareSampleRate() const { return sampleRate_; }
  /// Set by whoever opens the hardware. A rate that is not a positive number restores the default.
  void setSampleRate(double sampleRate);

  /// `options` are bits of `AudioSessionCategoryOptions`. Fails (`MediaErrorCode::invalidArgument`) for unknown bits,
  /// and with the handler's error; the category is then as before.
  Expected<void> setCategory(AudioSessionCategory category, unsigned options = kAudioSessionCategoryOptionNone);
  AudioSessionCategory category() const;
  unsigned categoryOptions() const;
  /// Who carries categories out, called on the thread of `setCategory`; an empty one accepts every category.
  void setCategoryHandler(CategoryHandler handler);

 private:
  AudioSession() = default;

  std::atomic<double> sampleRate_ = kDefaultSampleRate;
  mutable std::mutex mutex_;
  AudioSessionCategory category_ = AudioSessionCategory::ambient;
  unsigned categoryOptions_ = kAudioSessionCategoryOptionNone;
  CategoryHandler categoryHandler_;
};

}  // namespace tavrel
