#pragma once

#include <memory>

#include "Platform/Foundation/Export.h"

namespace tavrel {

class CaptureConnection;
class SampleBuffer;
class TavrelSampleBufferDelegateProxy;

/// Receives a proxy's frames.
class TAVREL_API TavrelSampleBufferDelegateProxyDelegate {
 public:
  virtual ~TavrelSampleBufferDelegateProxyDelegate() = default;

  /// On the queue of the data output.
  virtual void didOutputSampleBuffer(TavrelSampleBufferDelegateProxy& proxy,
                                     const std::shared_ptr<SampleBuffer>& sampleBuffer,
                                     const std::shared_ptr<CaptureConnection>& connection) = 0;
};

}  // namespace tavrel
