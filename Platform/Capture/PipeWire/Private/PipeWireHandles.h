#pragma once

#include <pipewire/pipewire.h>

#include <memory>
#include <string>

#include "Platform/Capture/PipeWire/Private/PipeWireGate.h"
#include "Platform/Foundation/Error.h"

namespace tavrel {

/// A thread that serves one connection to the PipeWire daemon, and the connection. Everything of PipeWire is touched
/// with the lock held or on the thread.
class PipeWireLoop {
 public:
  /// A running thread of that name (at most 15 characters). Fails when there is no memory or no thread.
  /// With a `gate` it connects through that.
  static Expected<std::unique_ptr<PipeWireLoop>> create(const char* name, std::shared_ptr<PipeWireGate> gate = nullptr);
  /// Ends the thread and closes the connection. Proxies, streams and listeners must be gone, or die in `stop`'s wake.
  ~PipeWireLoop();

  PipeWireLoop(const PipeWireLoop&) = delete;
  PipeWireLoop& operator=(const PipeWireLoop&) = delete;

  /// Fails at once when no daemon listens, or the gate is closed. With the lock held.
  Expected<void> connect();
  void disconnect();
  /// Joins the thread; afterwards no lock is needed.
  void stop();
  /// The same once the stream's events, of which `listener` is told, have ended: without this thread PipeWire's own
  /// would tell of them. The stream, which may be nullptr, is disconnected.
  void stop(pw_stream* stream, spa_hook& listener);

  /// Waits on the loop until `isDone` or the deadline; with the lock held. `signal` wakes it.
  template <typename Condition>
  bool waitFor(std::int64_t nanoseconds, Condition isDone) {
    timespec deadline{};
    pw_thread_loop_get_time(loop_, &deadline, nanoseconds);
    while (!isDone()) {
      if (pw_thread_loop_timed_wait_full(loop_, &deadline) < 0) return isDone();
    }
    return true;
  }
  void signal() { pw_thread_loop_signal(loop_, false); }

  pw_core* core() const { return core_; }
  pw_loop* loop() const { return pw_thread_loop_get_loop(loop_); }

  /// Holds the lock while this lives.
  class Lock {
   public:
    explicit Lock(PipeWireLoop& owner) : loop_(owner.loop_) { pw_thread_loop_lock(loop_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() { pw_thread_loop_unlock(loop_); }

   private:
    pw_thread_loop* loop_;
  };

 private:
  PipeWireLoop() = default;

  std::shared_ptr<PipeWireGate> gate_;
  pw_thread_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
};

}  // namespace tavrel
