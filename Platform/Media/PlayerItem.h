#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Dictionary.h"
#include "Platform/Media/Asset.h"

namespace tavrel {

class PixelBuffer;
class PlayerItemVideoOutput;
class SampleBuffer;

/// Is told when a video output will have pictures, on the queue that was given with it.
class TAVREL_API PlayerItemOutputDelegate {
 public:
  virtual ~PlayerItemOutputDelegate() = default;
  virtual void outputMediaDataWillChange(PlayerItemVideoOutput& sender) = 0;
};

/// An asset that is played: it maps the host's clock (`DisplayLink::hostTime`) to the asset's time line. It starts
/// paused at 0. Pictures come out of its video outputs; it makes no sound. Any thread.
class TAVREL_API PlayerItem {
 public:
  explicit PlayerItem(std::shared_ptr<const Asset> asset);
  PlayerItem(const PlayerItem&) = delete;
  PlayerItem& operator=(const PlayerItem&) = delete;
  ~PlayerItem();

  const std::shared_ptr<const Asset>& asset() const { return asset_; }
  MediaTime duration() const { return asset_->duration(); }

  void play() { setRate(1); }
  void pause() { setRate(0); }
  /// Seconds of the asset in a second of the host; 0 or more.
  void setRate(double rate);
  double rate() const;
  /// Goes on from `time`, playing or paused as before.
  void seek(MediaTime time);
  MediaTime currentTime() const;
  /// The time of the asset at a time of the host, from 0 to the asset's end.
  MediaTime itemTimeForHostTime(double hostTime) const;

  /// An output serves one item.
  void addOutput(const std::shared_ptr<PlayerItemVideoOutput>& output);
  void removeOutput(const std::shared_ptr<PlayerItemVideoOutput>& output);

 private:
  const std::shared_ptr<const Asset> asset_;
  mutable std::mutex mutex_;
  double rate_ = 0;
  double anchorHostTime_ = 0;
  double anchorItemTime_ = 0;
  std::vector<std::shared_ptr<PlayerItemVideoOutput>> outputs_;
};

/// The pictures of a player item's first video track, a few of which are decoded ahead on a thread of the output's own.
/// Any thread.
class TAVREL_API PlayerItemVideoOutput : public std::enable_shared_from_this<PlayerItemVideoOutput> {
 public:
  /// Pictures in the `PixelFormat` under `kPixelBufferPixelFormatTypeKey`; 'BGRA' when absent.
  static std::shared_ptr<PlayerItemVideoOutput> create(Dictionary pixelBufferAttributes);
  PlayerItemVideoOutput(const PlayerItemVideoOutput&) = delete;
  PlayerItemVideoOutput& operator=(const PlayerItemVideoOutput&) = delete;
  ~PlayerItemVideoOutput();

  void setDelegate(const std::weak_ptr<PlayerItemOutputDelegate>& delegate, std::shared_ptr<DispatchQueue> queue);
  /// Calls the delegate once as soon as pictures are at hand that were not when this was called, which is at least
  /// `interval` seconds before they are due where decoding keeps up.
  void requestNotificationOfMediaDataChange(double interval);

  /// As the item's; zero without an item.
  MediaTime itemTimeForHostTime(double hostTime) const;
  /// Whether a picture that was not copied yet is to be shown at this time.
  bool hasNewPixelBufferForItemTime(MediaTime itemTime);
  /// The picture to be shown at this time; nullptr when there is none at hand. Earlier ones are let go.
  std::shared_ptr<PixelBuffer> copyPixelBufferForItemTime(MediaTime itemTime);

 private:
  friend class PlayerItem;
  struct Decoding;

  explicit PlayerItemVideoOutput(Dictionary attributes);
  void attach(PlayerItem* item);
  void restart(MediaTime from);
  void decodeAhead();
  void decodeStep(const std::shared_ptr<Decoding>& decoding);
  void noteNewPictures();

  const Dictionary attributes_;
  mutable std::mutex mutex_;
  PlayerItem* item_ = nullptr;
  std::shared_ptr<DispatchQueue> queue_;
  std::shared_ptr<Decoding> decoding_;
  std::vector<std::shared_ptr<SampleBuffer>> ahead_;  // in order of presentation
  bool isStepPosted_ = false;
  bool isNotificationWanted_ = false;
  std::weak_ptr<PlayerItemOutputDelegate> delegate_;
  std::shared_ptr<DispatchQueue> delegateQueue_;
};

}  // namespace tavrel
