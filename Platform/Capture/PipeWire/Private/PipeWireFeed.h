#pragma once

#include <pipewire/pipewire.h>

#include <atomic>
#include <memory>
#include <optional>

#include "Platform/Capture/CameraFeed.h"
#include "Platform/Capture/PipeWire/Private/PipeWireHandles.h"
#include "Platform/Capture/PipeWire/Private/PipeWireLinks.h"
#include "Platform/Capture/Private/FeedPictures.h"

namespace tavrel {

/// A feed as a node of PipeWire's graph, which drives those that read from it. All readers share one layout, chosen by
/// whoever comes first. When the daemon ends, a new one is looked for every two seconds.
class PipeWireFeed : public CameraFeed {
 public:
  static Expected<std::unique_ptr<CameraFeed>> create(const Description& description, Events events);
  ~PipeWireFeed() override;

  bool hasReaders() const override { return isRead_; }
  int readerCount() const override { return isRead_ ? links_.count() : 0; }
  void show(std::shared_ptr<const PixelBufferSnapshot> picture) override;
  Counts counts() const override { return pictures_.counts(); }

 private:
  PipeWireFeed(Description description, Events events);
  static const pw_core_events kCoreEvents;
  static const pw_stream_events kStreamEvents;

  // On the loop's thread, or with its lock.
  Expected<void> start();
  Expected<void> connect();
  void disconnect();
  void retryLater();
  void lose(Error error);
  void setRead(bool isRead);
  void sendDue();
  void process();
  void agree(const spa_pod& format);
  static void coreError(void* data, std::uint32_t id, int, int result, const char* message);
  static void stateChanged(void* data, pw_stream_state, pw_stream_state state, const char* message);
  static void parameterChanged(void* data, std::uint32_t id, const spa_pod* parameter);

  const Description description_;
  const Events events_;
  FeedPictures pictures_;
  std::atomic<bool> isRead_ = false;
  PipeWireLinks links_;
  std::unique_ptr<PipeWireLoop> loop_;
  spa_source* due_ = nullptr;    // timer: a picture is due
  spa_source* retry_ = nullptr;  // timer: the daemon is to be looked for
  spa_source* shown_ = nullptr;  // event: there is a new picture
  spa_hook coreListener_{};
  spa_hook streamListener_{};
  pw_stream* stream_ = nullptr;
  bool isListed_ = false;   // the daemon has the node
  bool isStarted_ = false;  // what fails from now on is told as an event
  bool isLost_ = false;
  std::optional<Error> error_;
  std::optional<CameraFeedFormat> format_;
  std::uint64_t sequence_ = 0;
};

}  // namespace tavrel
