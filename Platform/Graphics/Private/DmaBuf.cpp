#include "Platform/Graphics/Private/DmaBuf.h"

#include <linux/dma-buf.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

namespace tavrel {

std::unique_ptr<DmaBuf> DmaBuf::create(gbm_device* device, std::size_t width, std::size_t height) {
  gbm_bo* object = gbm_bo_create(device, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                                 GBM_FORMAT_ARGB8888, GBM_BO_USE_LINEAR | GBM_BO_USE_RENDERING);
  if (object == nullptr) return nullptr;
  std::unique_ptr<DmaBuf> buffer(new DmaBuf(object));
  buffer->width_ = width;
  buffer->height_ = height;
  return buffer->map() ? std::move(buffer) : nullptr;
}

bool DmaBuf::map() {
  bytesPerRow_ = gbm_bo_get_stride(object_);
  fileDescriptor_ = gbm_bo_get_fd(object_);
  if (fileDescriptor_ < 0 || bytesPerRow_ < width_ * 4) return false;
  void* address = mmap(nullptr, byteCount(), PROT_READ | PROT_WRITE, MAP_SHARED, fileDescriptor_, 0);
  if (address == MAP_FAILED) return false;
  bytes_ = static_cast<std::uint8_t*>(address);
  return true;
}

DmaBuf::~DmaBuf() {
  endAccess();
  if (bytes_ != nullptr) munmap(bytes_, byteCount());
  if (fileDescriptor_ >= 0) close(fileDescriptor_);
  gbm_bo_destroy(object_);
}

void DmaBuf::beginAccess(PixelBufferLock purpose) {
  endAccess();
  access_ = purpose;
  synchronise(DMA_BUF_SYNC_START);
}

void DmaBuf::endAccess() {
  if (access_) synchronise(DMA_BUF_SYNC_END);
  access_.reset();
}

void DmaBuf::synchronise(std::uint64_t step) const {
  dma_buf_sync request{};
  request.flags = step | (access_ == PixelBufferLock::readOnly ? DMA_BUF_SYNC_READ : DMA_BUF_SYNC_RW);
  constexpr int kAttempts = 100;  // interrupted waits begin again
  for (int i = 0; i < kAttempts && ioctl(fileDescriptor_, DMA_BUF_IOCTL_SYNC, &request) != 0; ++i) {
    if (errno != EINTR && errno != EAGAIN) return;
  }
}

}  // namespace tavrel
