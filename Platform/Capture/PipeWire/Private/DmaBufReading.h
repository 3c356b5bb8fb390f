#pragma once

#include <linux/dma-buf.h>
#include <spa/buffer/buffer.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdint>

namespace tavrel {

/// The CPU's reading of what a device has written.
class DmaBufReading {
 public:
  explicit DmaBufReading(const spa_buffer& buffer) : buffer_(buffer) { synchronise(DMA_BUF_SYNC_START); }
  DmaBufReading(const DmaBufReading&) = delete;
  DmaBufReading& operator=(const DmaBufReading&) = delete;
  ~DmaBufReading() { synchronise(DMA_BUF_SYNC_END); }

 private:
  void synchronise(std::uint64_t step) const {
    for (std::uint32_t i = 0; i < buffer_.n_datas; ++i) {
      if (buffer_.datas[i].type != SPA_DATA_DmaBuf) continue;
      dma_buf_sync request{};
      request.flags = step | DMA_BUF_SYNC_READ;
      constexpr int kAttempts = 100;  // interrupted waits begin again
      for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (ioctl(static_cast<int>(buffer_.datas[i].fd), DMA_BUF_IOCTL_SYNC, &request) == 0) break;
        if (errno != EINTR && errno != EAGAIN) break;
      }
    }
  }

  const spa_buffer& buffer_;
};

}  // namespace tavrel
