#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Media/Asset.h"

namespace tavrel {

class PixelBuffer;
class PlayerItemVideoOutput;

/// Told when a video output will have frames, on the queue set with the delegate.
class TAVREL_API PlayerItemOutputDelegate {
 public:
  virtual ~PlayerItemOutputDelegate() = default;
  virtual void outputMediaDataWillChange(PlayerItemVideoOutput& sender) = 0;
};

/// Plays an asset: maps the host clock (`DisplayLink::hostTime`) to the asset's time line. Initially paused at 0. Its
/// video outputs deliver the frames; no sound is played. Any thread.
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
  /// Seconds of the asset per second of host time; 0 or more.
  void setRate(double rate);
  double rate() const;
  /// Moves to `time`; keeps playing, or stays paused.
  void seek(MediaTime time);
  MediaTime currentTime() const;
  /// The asset's time at a host time, clamped to 0 … the duration.
  MediaTime itemTimeForHostTime(double hostTime) const;

  /// An output belongs to one item.
  void addOutput(const std::shared_ptr<PlayerItemVideoOutput>& output);
  void removeOutput(const std::shared_ptr<PlayerItemVideoOutput>& output);

 private:
  const std::shared_ptr<const Asset> asset_;
  struct State;
  const Pimpl<State> state_;
};

/// Delivers the frames of a player item's first video track, some of them decoded ahead on its own thread. Any thread.
class TAVREL_API PlayerItemVideoOutput : public std::enable_shared_from_this<PlayerItemVideoOutput> {
 public:
  /// Frames in the `PixelFormat` under `kPixelBufferPixelFormatTypeKey`; by default 'BGRA'.
  static std::shared_ptr<PlayerItemVideoOutput> create(Dictionary pixelBufferAttributes);
  PlayerItemVideoOutput(const PlayerItemVideoOutput&) = delete;
  PlayerItemVideoOutput& operator=(const PlayerItemVideoOutput&) = delete;
  ~PlayerItemVideoOutput();

  void setDelegate(const std::weak_ptr<PlayerItemOutputDelegate>& delegate, std::shared_ptr<DispatchQueue> queue);
  /// Calls the delegate once, when new frames are decoded; if decoding keeps up, at least `interval` seconds before
  /// they are due.
  void requestNotificationOfMediaDataChange(double interval);

  /// The item's; zero without an item.
  MediaTime itemTimeForHostTime(double hostTime) const;
  /// Whether the frame due at this time has not been copied yet.
  bool hasNewPixelBufferForItemTime(MediaTime itemTime);
  /// The frame due at this time; nullptr if it is not decoded. Discards earlier ones.
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
  struct State;
  const Pimpl<State> state_;
};

}  // namespace tavrel
