#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "Platform/Capture/CaptureDeviceModes.h"
#include "Platform/Foundation/Error.h"

namespace tavrel {

/// Who lets this process in to the cameras of the PipeWire daemon, where it may not go by itself. Any thread.
class PipeWireGate {
 public:
  virtual ~PipeWireGate() = default;

  /// Asks for permission, once. `answered` is called on another thread.
  virtual void ask(std::function<void()> answered) = 0;
  /// Waits for the answer.
  virtual void await(std::chrono::seconds patience) = 0;
  /// Afterwards nobody waits, and `answered` is not called.
  virtual void giveUp() = 0;
  virtual CaptureAuthorizationStatus status() const = 0;
  /// What `status` means for a person; nothing when access is granted.
  virtual std::optional<Error> problem() const = 0;
  /// A socket to the daemon, the caller's. Fails with `problem`.
  virtual Expected<int> connect() = 0;
};

}  // namespace tavrel
