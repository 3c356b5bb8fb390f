#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/MediaSettings.h"
#include "Platform/Media/PlayerItem.h"
#include "Platform/Media/Private/Reading/SampleReader.h"

namespace tavrel {
namespace {

/// Pictures at hand at most, the one that is shown included.
constexpr std::size_t kMostAhead = 6;

}  // namespace

/// One run through the track, from where the last seek led to.
struct PlayerItemVideoOutput::Decoding {
  std::shared_ptr<const AssetTrack> track;
  std::unique_ptr<SampleReader> reader;  // output's queue only
  MediaTime from;
  std::atomic<bool> isOver = false;
};

struct PlayerItemVideoOutput::State {
  const Dictionary attributes;
  std::mutex mutex{};
  PlayerItem* item = nullptr;
  std::shared_ptr<DispatchQueue> queue{};
  std::shared_ptr<Decoding> decoding{};
  std::vector<std::shared_ptr<SampleBuffer>> ahead{};  // in order of presentation
  bool isStepPosted = false;
  bool isNotificationWanted = false;
  std::weak_ptr<PlayerItemOutputDelegate> delegate{};
  std::shared_ptr<DispatchQueue> delegateQueue{};
};

PlayerItemVideoOutput::PlayerItemVideoOutput(Dictionary attributes)
    : state_(new State{.attributes = std::move(attributes)}) {}

std::shared_ptr<PlayerItemVideoOutput> PlayerItemVideoOutput::create(Dictionary pixelBufferAttributes) {
  return std::shared_ptr<PlayerItemVideoOutput>(new PlayerItemVideoOutput(std::move(pixelBufferAttributes)));
}

PlayerItemVideoOutput::~PlayerItemVideoOutput() {
  if (state_->decoding) state_->decoding->isOver = true;
}

void PlayerItemVideoOutput::attach(PlayerItem* item) {
  const std::lock_guard lock(state_->mutex);
  if (item && state_->item) fatalAssertion("A player item output serves one item only");
  state_->item = item;
  if (item) return;
  if (state_->decoding) state_->decoding->isOver = true;
  state_->decoding.reset();
  state_->ahead.clear();
}

void PlayerItemVideoOutput::setDelegate(const std::weak_ptr<PlayerItemOutputDelegate>& delegate,
                                        std::shared_ptr<DispatchQueue> queue) {
  const std::lock_guard lock(state_->mutex);
  state_->delegate = delegate;
  state_->delegateQueue = std::move(queue);
}

void PlayerItemVideoOutput::requestNotificationOfMediaDataChange(double) {
  // Pictures are decoded as early as there is room for them, which is sooner than anybody asks for.
  const std::lock_guard lock(state_->mutex);
  state_->isNotificationWanted = true;
}

MediaTime PlayerItemVideoOutput::itemTimeForHostTime(double hostTime) const {
  const std::lock_guard lock(state_->mutex);
  return state_->item ? state_->item->itemTimeForHostTime(hostTime) : MediaTime::zero();
}

void PlayerItemVideoOutput::restart(MediaTime from) {
  const std::lock_guard lock(state_->mutex);
  if (!state_->item) return;
  const auto tracks = state_->item->asset()->tracksWithMediaType(MediaType::video);
  if (state_->decoding) state_->decoding->isOver = true;
  state_->decoding.reset();
  state_->ahead.clear();
  if (tracks.empty()) return;
  state_->decoding = std::make_shared<Decoding>();
  state_->decoding->track = tracks.front();
  state_->decoding->from = from;
  if (!state_->queue) state_->queue = DispatchQueue::create("tavrel.player.output");
  decodeAhead();
}

/// The caller holds the lock.
void PlayerItemVideoOutput::decodeAhead() {
  if (!state_->decoding || state_->decoding->isOver || state_->isStepPosted || state_->ahead.size() >= kMostAhead)
    return;
  state_->isStepPosted = true;
  state_->queue->async([weak = weak_from_this(), decoding = state_->decoding] {
    if (const auto self = weak.lock()) self->decodeStep(decoding);
  });
}

void PlayerItemVideoOutput::decodeStep(const std::shared_ptr<Decoding>& decoding) {
  const auto goOn = [&] { return !decoding->isOver; };
  const auto step = [&]() -> Expected<std::shared_ptr<SampleBuffer>> {
    if (!decoding->reader) {
      SampleForm form;
      const auto format = numberFor(state_->attributes, kPixelBufferPixelFormatTypeKey);
      if (format) form.pixelFormat = static_cast<PixelFormat>(static_cast<std::uint32_t>(*format));
      auto opened = openTrack(*decoding->track, form);
      if (!opened) return tl::unexpected(opened.error());
      decoding->reader = std::move(*opened);
      const MediaTimeRange rest = {decoding->from, MediaTime::positiveInfinity()};
      if (auto sought = decoding->reader->seek(rest, true); !sought) return tl::unexpected(sought.error());
    }
    return decoding->reader->next(goOn);
  };
  const auto sample = step();
  const std::lock_guard lock(state_->mutex);
  state_->isStepPosted = false;
  if (decoding == state_->decoding) {
    if (sample && *sample) {
      state_->ahead.push_back(*sample);
      noteNewPictures();
    } else {
      decoding->isOver = true;
    }
  }
  decodeAhead();
}

/// The caller holds the lock.
void PlayerItemVideoOutput::noteNewPictures() {
  if (!std::exchange(state_->isNotificationWanted, false) || !state_->delegateQueue) return;
  state_->delegateQueue->async([self = shared_from_this(), weak = state_->delegate] {
    if (const auto delegate = weak.lock()) delegate->outputMediaDataWillChange(*self);
  });
}

bool PlayerItemVideoOutput::hasNewPixelBufferForItemTime(MediaTime itemTime) {
  const std::lock_guard lock(state_->mutex);
  return !state_->ahead.empty() && state_->ahead.front()->presentationTimeStamp() <= itemTime;
}

std::shared_ptr<PixelBuffer> PlayerItemVideoOutput::copyPixelBufferForItemTime(MediaTime itemTime) {
  const std::lock_guard lock(state_->mutex);
  const auto later = std::find_if(state_->ahead.begin(), state_->ahead.end(),
                                  [&](const auto& sample) { return sample->presentationTimeStamp() > itemTime; });
  if (later == state_->ahead.begin()) return nullptr;
  auto picture = (*std::prev(later))->imageBuffer();
  state_->ahead.erase(state_->ahead.begin(), later);
  decodeAhead();
  return picture;
}

}  // namespace tavrel
