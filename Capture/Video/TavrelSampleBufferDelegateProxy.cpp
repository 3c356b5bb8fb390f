#include "Capture/Video/TavrelSampleBufferDelegateProxy.h"

#include <utility>

namespace tavrel {

struct TavrelSampleBufferDelegateProxy::Implementation {
  std::weak_ptr<TavrelSampleBufferDelegateProxyDelegate> delegate;
};

TavrelSampleBufferDelegateProxy::TavrelSampleBufferDelegateProxy()
    : implementation_(std::make_unique<Implementation>()) {}

TavrelSampleBufferDelegateProxy::~TavrelSampleBufferDelegateProxy() = default;

std::shared_ptr<TavrelSampleBufferDelegateProxyDelegate> TavrelSampleBufferDelegateProxy::delegate() const {
  return implementation_->delegate.lock();
}

void TavrelSampleBufferDelegateProxy::setDelegate(std::weak_ptr<TavrelSampleBufferDelegateProxyDelegate> delegate) {
  implementation_->delegate = std::move(delegate);
}

void TavrelSampleBufferDelegateProxy::didOutputSampleBuffer(CaptureVideoDataOutput&,
                                                            const std::shared_ptr<SampleBuffer>& sampleBuffer,
                                                            const std::shared_ptr<CaptureConnection>& connection) {
  if (const auto target = delegate()) target->didOutputSampleBuffer(*this, sampleBuffer, connection);
}

}  // namespace tavrel
