#include "GPUImage/Destinations/Private/MovieTrackFeeder.h"

#include <thread>
#include <utility>

#include "GPUImage/TavrelGPUImageContext.h"

namespace tavrel {

std::optional<Error> MovieTrackFeeder::attach(std::shared_ptr<AssetWriterInput> input) {
  const bool isRefused = assetWriter_ && !assetWriter_->addInput(input);
  input_.set(std::move(input));
  return isRefused ? assetWriter_->error() : std::nullopt;
}

bool MovieTrackFeeder::isWriting() const {
  return assetWriter_ && assetWriter_->status() == AssetWriterStatus::writing;
}

bool MovieTrackFeeder::waitUntilReady(const std::atomic<bool>& isLive, std::chrono::nanoseconds slice) const {
  const auto track = input();
  bool isReady = track->isReadyForMoreMediaData();
  while (!isReady && !isLive && !encodingIsFinished_ && isWriting()) isReady = track->waitUntilReady(slice);
  return isReady;
}

void MovieTrackFeeder::finish() {
  if (!isWriting() || encodingIsFinished_.exchange(true)) return;
  if (const auto track = input()) track->markAsFinished();
}

void MovieTrackFeeder::pull(const char* queueLabel, std::weak_ptr<const void> owner, const std::atomic<bool>& isPaused,
                            const std::shared_ptr<DispatchQueue>& writerQueue) {
  const auto track = input();
  readingQueue_ = DispatchQueue::create(queueLabel, TavrelGPUImageDefaultQueueAttribute());
  track->requestMediaDataWhenReady(readingQueue_, [this, owner = std::move(owner), track, &isPaused, writerQueue] {
    const auto alive = owner.lock();
    if (!alive) return;
    if (isPaused) return std::this_thread::sleep_for(std::chrono::microseconds(10000));
    while (track->isReadyForMoreMediaData() && !isPaused) {
      const auto callback = inputReadyCallback_.get();
      if ((callback && (*callback)()) || encodingIsFinished_) continue;
      writerQueue->async([this, alive] { finish(); });
      return;  // asked again if the track could not be finished yet
    }
  });
}

}  // namespace tavrel
