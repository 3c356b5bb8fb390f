#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Media/Private/Writing/MovieFile.h"

namespace tavrel {

/// Packets on their way from the encoders' threads to the file's own, which is the only one that waits for the disk.
/// Any thread.
class PacketQueue : public std::enable_shared_from_this<PacketQueue> {
 public:
  /// Both are called on the file's thread: with the first error; and when there is room again.
  struct Handlers {
    std::function<void(Error)> failed;
    std::function<void()> hasRoom;
  };

  PacketQueue(std::shared_ptr<MovieFile> file, Handlers handlers);

  MovieFile& file() { return *file_; }
  /// Never waits; takes the packet also where there is no room. After an error nothing is written any more.
  void write(int track, Packet packet);
  void endTrack(int track);
  /// Does what is due by the clock, see `MovieFile::tick`.
  void tick();
  /// Whether more samples of this kind should be encoded: the encoders' own backlog fits beyond. Sound has room
  /// longer than pictures have.
  bool hasRoom(MediaType mediaType) const;
  /// What waits is not written.
  void discard() { isDiscarding_ = true; }
  /// Returns when everything was written.
  void drain();

 private:
  void run(const std::function<Expected<void>()>& work);

  const std::shared_ptr<MovieFile> file_;
  const Handlers handlers_;
  const std::shared_ptr<DispatchQueue> queue_;
  std::atomic<std::int64_t> waitingBytes_ = 0;
  std::atomic<bool> isTickPosted_ = false;
  std::atomic<bool> isDiscarding_ = false;
  bool hasFailed_ = false;  // queue only
};

/// Where one track's encoder puts what it makes.
struct TrackOutput {
  std::shared_ptr<PacketQueue> queue;
  int track = -1;

  bool setFormat(const TrackFormat& format, bool isFinal) const {
    return queue->file().setFormat(track, format, isFinal);
  }
  void write(Packet packet) const { queue->write(track, std::move(packet)); }
};

}  // namespace tavrel
