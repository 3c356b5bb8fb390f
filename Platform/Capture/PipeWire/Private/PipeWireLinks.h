#pragma once

#include <pipewire/pipewire.h>

#include <atomic>
#include <cstdint>
#include <map>

namespace tavrel {

/// Counts who reads from a stream of this process: the links that begin at its node. Started and stopped on the loop's
/// thread, or with its lock; the count may be read on any thread.
class PipeWireLinks {
 public:
  PipeWireLinks() = default;
  PipeWireLinks(const PipeWireLinks&) = delete;
  PipeWireLinks& operator=(const PipeWireLinks&) = delete;

  /// Both must outlive `stop`.
  void start(pw_core* core, pw_stream* stream);
  void stop();
  int count() const { return count_; }

 private:
  static const pw_registry_events kEvents;
  void recount();

  pw_stream* stream_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook listener_{};
  std::map<std::uint32_t, std::uint32_t> nodes_;  // where each link begins
  std::atomic<int> count_ = 0;
};

}  // namespace tavrel
