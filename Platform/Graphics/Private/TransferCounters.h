#pragma once

#include <atomic>
#include <cstdint>

namespace tavrel {

/// The process's counts behind `TextureCache::statistics()`. Never destroyed, since late destructors count too.
struct TransferCounters {
  using Counter = std::atomic<std::uint64_t>;

  Counter texturesCreated, texturesDeleted, framebuffersCreated;
  Counter uploads, bytesUploaded, downloads, bytesDownloaded;
  Counter blocksAllocated, bytesAllocated, bytesCopied;

  static TransferCounters& shared() {
    static auto* counters = new TransferCounters();
    return *counters;
  }
};

}  // namespace tavrel
