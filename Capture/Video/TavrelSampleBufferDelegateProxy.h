#pragma once

#include <memory>
#include <utility>

#include "Capture/Video/TavrelSampleBufferDelegateProxyDelegate.h"
#include "Platform/Capture/CaptureVideoDataOutput.h"

namespace tavrel {

/// Forwards a data output's frames to a delegate, if that still exists.
class TAVREL_API TavrelSampleBufferDelegateProxy : public CaptureVideoDataOutputSampleBufferDelegate {
 public:
  std::shared_ptr<TavrelSampleBufferDelegateProxyDelegate> delegate() const { return delegate_.lock(); }
  /// Set before the proxy becomes an output's delegate.
  void setDelegate(std::weak_ptr<TavrelSampleBufferDelegateProxyDelegate> delegate) { delegate_ = std::move(delegate); }

  void didOutputSampleBuffer(CaptureVideoDataOutput&, const std::shared_ptr<SampleBuffer>& sampleBuffer,
                             const std::shared_ptr<CaptureConnection>& connection) override {
    if (const auto delegate = delegate_.lock()) delegate->didOutputSampleBuffer(*this, sampleBuffer, connection);
  }

 private:
  std::weak_ptr<TavrelSampleBufferDelegateProxyDelegate> delegate_;
};

}  // namespace tavrel
