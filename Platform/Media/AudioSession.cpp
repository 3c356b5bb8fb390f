#include "Platform/Media/AudioSession.h"
#include "Platform/Media/MediaError.h"

#include <fmt/format.h>

#include <cmath>
#include <utility>

namespace tavrel {
namespace {

constexpr unsigned kKnownOptions =
    kAudioSessionCategoryOptionDefaultToSpeaker | kAudioSessionCategoryOptionAllowBluetoothA2DP;

}  // namespace

AudioSession& AudioSession::shared() {
  static auto& session = *new AudioSession;
  return session;
}

void AudioSession::setSampleRate(double sampleRate) {
  sampleRate_ = std::isfinite(sampleRate) && sampleRate > 0 ? sampleRate : kDefaultSampleRate;
}

Expected<void> AudioSession::setCategory(AudioSessionCategory category, unsigned options) {
  if ((options & ~kKnownOptions) != 0) {
    return failure(MediaErrorCode::invalidArgument,
                   fmt::format("the sound options {:#x} are not known; choose among {:#x}", options, kKnownOptions));
  }
  CategoryHandler handler;
  {
    const std::lock_guard lock(mutex_);
    handler = categoryHandler_;
  }
  if (handler) {
    if (auto done = handler(category, options); !done) return done;
  }
  const std::lock_guard lock(mutex_);
  category_ = category;
  categoryOptions_ = options;
  return {};
}

AudioSessionCategory AudioSession::category() const {
  const std::lock_guard lock(mutex_);
  return category_;
}

unsigned AudioSession::categoryOptions() const {
  const std::lock_guard lock(mutex_);
  return categoryOptions_;
}

void AudioSession::setCategoryHandler(CategoryHandler handler) {
  const std::lock_guard lock(mutex_);
  categoryHandler_ = std::move(handler);
}

}  // namespace tavrel
