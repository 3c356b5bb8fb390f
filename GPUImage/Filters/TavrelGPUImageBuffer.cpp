#include "GPUImage/Filters/TavrelGPUImageBuffer.h"

#include <utility>

namespace tavrel {

TavrelGPUImageBuffer::TavrelGPUImageBuffer() = default;

TavrelGPUImageBuffer::~TavrelGPUImageBuffer() = default;

void TavrelGPUImageBuffer::setBufferSize(std::size_t newValue) {
  if (newValue == 0) return;
  for (; bufferSize_ > newValue; --bufferSize_) {
    if (!bufferedFramebuffers.empty()) bufferedFramebuffers.pop_back();
  }
  bufferSize_ = newValue;
}

void TavrelGPUImageBuffer::newFrameReadyAtTime(MediaTime frameTime, Index) {
  bufferedFramebuffers.push_back(std::move(firstInputFramebuffer));
  if (bufferedFramebuffers.size() <= bufferSize_) {
    setOutputFramebuffer(TavrelGPUImageFramebufferLease(bufferedFramebuffers.back().get()).detach());
  } else {
    setOutputFramebuffer(bufferedFramebuffers.front().detach());
    bufferedFramebuffers.pop_front();
  }
  if (const auto block = frameProcessingCompletionBlock()) block(*this, frameTime);
  handOver({.frameTime = frameTime, .size = outputFrameSize(), .rotation = inputRotation()});
}

}  // namespace tavrel
