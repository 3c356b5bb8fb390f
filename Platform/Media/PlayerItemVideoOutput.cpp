#include <algorithm>
#include <atomic>
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

PlayerItemVideoOutput::PlayerItemVideoOutput(Dictionary attributes) : attributes_(std::move(attributes)) {}

std::shared_ptr<PlayerItemVideoOutput> PlayerItemVideoOutput::create(Dictionary pixelBufferAttributes) {
  return std::shared_ptr<PlayerItemVideoOutput>(new PlayerItemVideoOutput(std::move(pixelBufferAttributes)));
}

PlayerItemVideoOutput::~PlayerItemVideoOutput() {
  if (decoding_) decoding_->isOver = true;
}

void PlayerItemVideoOutput::attach(PlayerItem* item) {
  const std::lock_guard lock(mutex_);
  if (item && item_) fatalAssertion("A player item output serves one item only");
  item_ = item;
  if (item) return;
  if (decoding_) decoding_->isOver = true;
  decoding_.reset();
  ahead_.clear();
}

void PlayerItemVideoOutput::setDelegate(const std::weak_ptr<PlayerItemOutputDelegate>& delegate,
                                        std::shared_ptr<DispatchQueue> queue) {
  const std::lock_guard lock(mutex_);
  delegate_ = delegate;
  delegateQueue_ = std::move(queue);
}

void PlayerItemVideoOutput::requestNotificationOfMediaDataChange(double) {
  // Pictures are decoded as early as there is room for them, which is sooner than anybody asks for.
  const std::lock_guard lock(mutex_);
  isNotificationWanted_ = true;
}

MediaTime PlayerItemVideoOutput::itemTimeForHostTime(double hostTime) const {
  const std::lock_guard lock(mutex_);
  return item_ ? item_->itemTimeForHostTime(hostTime) : MediaTime::zero();
}

void PlayerItemVideoOutput::restart(MediaTime from) {
  const std::lock_guard lock(mutex_);
  if (!item_) return;
  const auto tracks = item_->asset()->tracksWithMediaType(MediaType::video);
  if (decoding_) decoding_->isOver = true;
  decoding_.reset();
  ahead_.clear();
  if (tracks.empty()) return;
  decoding_ = std::make_shared<Decoding>();
  decoding_->track = tracks.front();
  decoding_->from = from;
  if (!queue_) queue_ = DispatchQueue::create("tavrel.player.output");
  decodeAhead();
}

/// The caller holds the lock.
void PlayerItemVideoOutput::decodeAhead() {
  if (!decoding_ || decoding_->isOver || isStepPosted_ || ahead_.size() >= kMostAhead) return;
  isStepPosted_ = true;
  queue_->async([weak = weak_from_this(), decoding = decoding_] {
    if (const auto self = weak.lock()) self->decodeStep(decoding);
  });
}

void PlayerItemVideoOutput::decodeStep(const std::shared_ptr<Decoding>& decoding) {
  const auto goOn = [&] { return !decoding->isOver; };
  const auto step = [&]() -> Expected<std::shared_ptr<SampleBuffer>> {
    if (!decoding->reader) {
      SampleForm form;
      const auto format = numberFor(attributes_, kPixelBufferPixelFormatTypeKey);
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
  const std::lock_guard lock(mutex_);
  isStepPosted_ = false;
  if (decoding == decoding_) {
    if (sample && *sample) {
      ahead_.push_back(*sample);
      noteNewPictures();
    } else {
      decoding->isOver = true;
    }
  }
  decodeAhead();
}

/// The caller holds the lock.
void PlayerItemVideoOutput::noteNewPictures() {
  if (!std::exchange(isNotificationWanted_, false) || !delegateQueue_) return;
  delegateQueue_->async([self = shared_from_this(), weak = delegate_] {
    if (const auto delegate = weak.lock()) delegate->outputMediaDataWillChange(*self);
  });
}

bool PlayerItemVideoOutput::hasNewPixelBufferForItemTime(MediaTime itemTime) {
  const std::lock_guard lock(mutex_);
  return !ahead_.empty() && ahead_.front()->presentationTimeStamp() <= itemTime;
}

std::shared_ptr<PixelBuffer> PlayerItemVideoOutput::copyPixelBufferForItemTime(MediaTime itemTime) {
  const std::lock_guard lock(mutex_);
  const auto later = std::find_if(ahead_.begin(), ahead_.end(),
                                  [&](const auto& sample) { return sample->presentationTimeStamp() > itemTime; });
  if (later == ahead_.begin()) return nullptr;
  auto picture = (*std::prev(later))->imageBuffer();
  ahead_.erase(ahead_.begin(), later);
  decodeAhead();
  return picture;
}

}  // namespace tavrel
