#include "Platform/Media/Private/Writing/PacketQueue.h"

namespace tavrel {
namespace {

// Half a minute of 1920x1080, minutes of what is smaller.
constexpr std::int64_t kMostPictureBytes = std::int64_t{64} << 20;
constexpr std::int64_t kMostSoundBytes = std::int64_t{80} << 20;
constexpr std::int64_t kBytesBesideData = 512;

std::int64_t sizeOf(const Packet& packet) { return packet->size + kBytesBesideData; }

}  // namespace

PacketQueue::PacketQueue(std::shared_ptr<MovieFile> file, Handlers handlers)
    : file_(std::move(file)), handlers_(std::move(handlers)), queue_(DispatchQueue::create("tavrel.writer.file")) {}

void PacketQueue::run(const std::function<Expected<void>()>& work) {
  if (isDiscarding_ || hasFailed_) return;
  auto done = work();
  if (done) return;
  hasFailed_ = true;
  handlers_.failed(std::move(done.error()));
}

void PacketQueue::write(int track, Packet packet) {
  waitingBytes_ += sizeOf(packet);
  queue_->async([self = shared_from_this(), track, shared = std::make_shared<Packet>(std::move(packet))] {
    const std::int64_t size = sizeOf(*shared);
    self->run([&] { return self->file_->write(track, std::move(*shared)); });
    const std::int64_t before = self->waitingBytes_.fetch_sub(size);
    const auto isCrossed = [&](std::int64_t most) { return before >= most && before - size < most; };
    if (isCrossed(kMostPictureBytes) || isCrossed(kMostSoundBytes)) self->handlers_.hasRoom();
  });
}

void PacketQueue::endTrack(int track) {
  queue_->async([self = shared_from_this(), track] { self->file_->endTrack(track); });
}

void PacketQueue::tick() {
  if (isTickPosted_.exchange(true)) return;
  queue_->async([self = shared_from_this()] {
    self->isTickPosted_ = false;
    self->run([&] { return self->file_->tick(); });
  });
}

bool PacketQueue::hasRoom(MediaType mediaType) const {
  return waitingBytes_ < (mediaType == MediaType::video ? kMostPictureBytes : kMostSoundBytes);
}

void PacketQueue::drain() {
  queue_->sync([] {});
}

}  // namespace tavrel
