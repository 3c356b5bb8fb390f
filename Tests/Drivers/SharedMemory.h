#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

/// Guards all that the driver knows. Never held by whoever calls it.
using DriverGuard = std::lock_guard<std::recursive_mutex>;
std::recursive_mutex& driverMutex();

/// Bytes that stand for a buffer object of a graphics device: a file in memory with padded rows.
struct Memory {
  Memory(std::uint32_t bufferWidth, std::uint32_t bufferHeight);
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  ~Memory();

  /// The one behind a file descriptor; nullptr for another file.
  static std::shared_ptr<Memory> ofFile(int file);

  std::size_t byteCount() const { return std::size_t{bytesPerRow} * height; }

  const std::uint32_t width;
  const std::uint32_t height;
  const std::uint32_t bytesPerRow;
  const int file;
  void* bytes = nullptr;
  std::uint64_t version = 1;
  int unsentReads = 0;  ///< contexts with commands not yet sent off that are to read it
};
