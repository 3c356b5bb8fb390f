#pragma once

#include <atomic>
#include <functional>
#include <mutex>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// How the process uses sound.
enum class AudioSessionCategory { ambient, record, playAndRecord };

/// Options of a category, as bits.
enum AudioSessionCategoryOptions : unsigned {
  kAudioSessionCategoryOptionNone = 0,
  kAudioSessionCategoryOptionDefaultToSpeaker = 0x8,
  kAudioSessionCategoryOptionAllowBluetoothA2DP = 0x20,
};

/// The process's audio hardware and how it is used. Sound services on Linux route by stream, so the category is stored
/// but changes no routing by itself. Any thread.
class TAVREL_API AudioSession {
 public:
  static constexpr double kDefaultSampleRate = 48000;
  /// Applies a category; fails with the sound service's error.
  using CategoryHandler = std::function<Expected<void>(AudioSessionCategory category, unsigned options)>;

  static AudioSession& shared();

  /// The hardware's sample rate in Hz; 48000 until set.
  double sampleRate() const { return sampleRate_; }
  double currentHardwareSampleRate() const { return sampleRate_; }
  /// Called by the code that opens the hardware. A rate that is not positive and finite restores the default.
  void setSampleRate(double sampleRate);

  /// `options` are bits of `AudioSessionCategoryOptions`. Fails (`MediaErrorCode::invalidArgument`) for unknown bits,
  /// or with the handler's error; the category is then unchanged.
  Expected<void> setCategory(AudioSessionCategory category, unsigned options = kAudioSessionCategoryOptionNone);
  AudioSessionCategory category() const;
  unsigned categoryOptions() const;
  /// Called on the thread of `setCategory`. An empty handler accepts every category.
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
