#pragma once

#include <memory>
#include <utility>

#include "GPUImage/TavrelGPUImageFramebuffer.h"

namespace tavrel {

/// The framebuffer that a node holds as its input, and the lock that it took on it. The lock ends once: by `release`,
/// by another framebuffer's taking the place, or with the lease. One owner; any thread that may touch the framebuffer.
class TavrelGPUImageFramebufferLease {
 public:
  TavrelGPUImageFramebufferLease() = default;
  /// Locks `framebuffer`, which may be none.
  explicit TavrelGPUImageFramebufferLease(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer)
      : framebuffer_(std::move(framebuffer)), isLocked_(framebuffer_ != nullptr) {
    if (isLocked_) framebuffer_->lock();
  }
  /// Takes over a lock that the caller holds.
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

  /// Ends the lock. The framebuffer stays known, but may now be drawn into by others.
  void release() {
    if (std::exchange(isLocked_, false)) framebuffer_->unlock();
  }
  /// Hands the framebuffer over with its lock, which the caller now ends.
  std::shared_ptr<TavrelGPUImageFramebuffer> detach() {
    isLocked_ = false;
    return std::move(framebuffer_);
  }

  /// GL's name of the texture; 0 without a framebuffer.
  GLuint texture() const { return framebuffer_ ? framebuffer_->texture() : 0; }
  const std::shared_ptr<TavrelGPUImageFramebuffer>& get() const { return framebuffer_; }
  explicit operator bool() const { return framebuffer_ != nullptr; }

 private:
  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer_;
  bool isLocked_ = false;
};

}  // namespace tavrel
