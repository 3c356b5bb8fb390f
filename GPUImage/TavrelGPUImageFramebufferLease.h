#pragma once

#include <memory>
#include <utility>

#include "GPUImage/TavrelGPUImageFramebuffer.h"

namespace tavrel {

/// A framebuffer with a lock on it, such as a node's input. The lock ends exactly once: by `release`, by assignment or
/// by destruction.
class TavrelGPUImageFramebufferLease {
 public:
  TavrelGPUImageFramebufferLease() = default;
  /// Locks `framebuffer`, which may be nullptr.
  explicit TavrelGPUImageFramebufferLease(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer)
      : framebuffer_(std::move(framebuffer)), isLocked_(framebuffer_ != nullptr) {
    if (isLocked_) framebuffer_->lock();
  }
  /// Adopts a lock that the caller holds.
  static TavrelGPUImageFramebufferLease adopt(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer) {
    TavrelGPUImageFramebufferLease lease;
    lease.framebuffer_ = std::move(framebuffer);
    lease.isLocked_ = lease.framebuffer_ != nullptr;
    return lease;
  }
  TavrelGPUImageFramebufferLease(TavrelGPUImageFramebufferLease&& other) noexcept
      : framebuffer_(std::move(other.framebuffer_)), isLocked_(std::exchange(other.isLocked_, false)) {}
  TavrelGPUImageFramebufferLease& operator=(TavrelGPUImageFramebufferLease&& other) noexcept {
    std::swap(framebuffer_, other.framebuffer_);
    std::swap(isLocked_, other.isLocked_);
    other.release();
    return *this;
  }
  ~TavrelGPUImageFramebufferLease() { release(); }

  /// Ends the lock. `get` still returns the framebuffer, which may now be reused.
  void release() {
    if (std::exchange(isLocked_, false)) framebuffer_->unlock();
  }
  /// Returns the framebuffer and leaves its lock to the caller.
  std::shared_ptr<TavrelGPUImageFramebuffer> detach() {
    isLocked_ = false;
    return std::move(framebuffer_);
  }

  /// The texture's GL name; 0 without a framebuffer.
  GLuint texture() const { return framebuffer_ ? framebuffer_->texture() : 0; }
  const std::shared_ptr<TavrelGPUImageFramebuffer>& get() const { return framebuffer_; }
  explicit operator bool() const { return framebuffer_ != nullptr; }
  bool isLocked() const { return isLocked_; }

 private:
  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer_;
  bool isLocked_ = false;
};

}  // namespace tavrel
