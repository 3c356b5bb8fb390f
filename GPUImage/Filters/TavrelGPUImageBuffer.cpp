#include "GPUImage/Filters/TavrelGPUImageBuffer.h"

#include <deque>
#include <utility>

#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/Private/Properties.h"

namespace tavrel {

struct TavrelGPUImageBuffer::Implementation {
  std::size_t bufferSize = 1;
  std::deque<TavrelGPUImageFramebufferLease> bufferedFramebuffers;  // oldest first
};

TavrelGPUImageBuffer::TavrelGPUImageBuffer() : implementation_(std::make_unique<Implementation>()) {}

TavrelGPUImageBuffer::~TavrelGPUImageBuffer() = default;

TAVREL_NODE_VALUE(TavrelGPUImageBuffer, std::size_t, bufferSize)

void TavrelGPUImageBuffer::setBufferSize(std::size_t newValue) {
  if (newValue == 0) return;
  onVideoProcessingQueue([&] {
    auto& [size, framebuffers] = *implementation_;
    for (; size > newValue; --size) {
      if (!framebuffers.empty()) framebuffers.pop_back();
    }
    size = newValue;
  });
}

void TavrelGPUImageBuffer::newFrameReadyAtTime(MediaTime frameTime, Index) {
  if (preventRendering()) return unlockInputs();
  auto& framebuffers = implementation_->bufferedFramebuffers;
  framebuffers.push_back(std::move(filter().firstInputFramebuffer));
  if (framebuffers.size() <= implementation_->bufferSize) {
    setOutputFramebuffer(TavrelGPUImageFramebufferLease(framebuffers.back().get()).detach());
  } else {
    setOutputFramebuffer(framebuffers.front().detach());
    framebuffers.pop_front();
  }
  passOn({.frameTime = frameTime, .size = outputFrameSize(), .rotation = inputRotation()});
}

}  // namespace tavrel
