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
    outputFramebuffer = TavrelGPUImageFramebufferLease(bufferedFramebuffers.back().get()).detach();
  } else {
    outputFramebuffer = bufferedFramebuffers.front().detach();
    bufferedFramebuffers.pop_front();
  }
  forEachUpdatedTarget([this](const auto& target, Index slot) { target->setInputRotation(inputRotation(), slot); });
  informTargetsAboutNewFrameAtTime(frameTime);
}

}  // namespace tavrel
