#pragma once

#include <memory>

#include "Capture/Video/TavrelSampleBufferDelegateProxyDelegate.h"
#include "Platform/Capture/CaptureVideoDataOutput.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Forwards a data output's frames to a delegate, if that still exists.
class TAVREL_API TavrelSampleBufferDelegateProxy : public CaptureVideoDataOutputSampleBufferDelegate {
 public:
  TavrelSampleBufferDelegateProxy();
  ~TavrelSampleBufferDelegateProxy() override;

  /// The delegate, or nullptr if it was destroyed.
  std::shared_ptr<TavrelSampleBufferDelegateProxyDelegate> delegate() const;
  /// Set before the proxy becomes an output's delegate.
  void setDelegate(std::weak_ptr<TavrelSampleBufferDelegateProxyDelegate> delegate);

  void didOutputSampleBuffer(CaptureVideoDataOutput& output, const std::shared_ptr<SampleBuffer>& sampleBuffer,
                             const std::shared_ptr<CaptureConnection>& connection) override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
