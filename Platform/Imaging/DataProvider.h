#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Read-only bytes, owned or borrowed, with a callback for when they are no longer needed. Any thread.
class TAVREL_API DataProvider {
 public:
  using ReleaseCallback = void (*)(void* info, const void* data, std::size_t size);

  /// `release`, which may be null, is called once, on the thread that drops the last reference.
  static std::shared_ptr<DataProvider> create(void* info, const void* data, std::size_t size, ReleaseCallback release);
  static std::shared_ptr<DataProvider> create(Data data);

  DataProvider(const DataProvider&) = delete;
  DataProvider& operator=(const DataProvider&) = delete;
  ~DataProvider();

  std::span<const std::uint8_t> bytes() const { return bytes_; }
  Data copyData() const { return {bytes_.begin(), bytes_.end()}; }

 private:
  DataProvider() = default;

  Data owned_;
  std::span<const std::uint8_t> bytes_;
  void* info_ = nullptr;
  ReleaseCallback release_ = nullptr;
};

}  // namespace tavrel
