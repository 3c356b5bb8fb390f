#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

#include "Platform/Foundation/Data.h"
#include "Platform/Imaging/DataProvider.h"

namespace tavrel {

/// Memory for one picture after the other of the same size: that of the picture let go of last serves the next one, so
/// that playing neither asks the system for pages nor gives them back. Any thread.
class RecycledPixels : public std::enable_shared_from_this<RecycledPixels> {
 public:
  /// What was in it before is still there.
  Data take(std::size_t size) {
    const std::lock_guard lock(mutex_);
    if (spare_.size() == size) return std::exchange(spare_, {});
    return Data(size);
  }

  /// The bytes for an image; they come back when nobody needs them any more.
  std::shared_ptr<DataProvider> lend(Data pixels) {
    auto loan = std::make_unique<Loan>(Loan{shared_from_this(), std::move(pixels)});
    const void* const bytes = loan->pixels.data();
    const std::size_t size = loan->pixels.size();
    return DataProvider::create(loan.release(), bytes, size, [](void* info, const void*, std::size_t) {
      const std::unique_ptr<Loan> ended(static_cast<Loan*>(info));
      ended->owner->giveBack(ended->pixels);
    });
  }

 private:
  struct Loan {
    std::shared_ptr<RecycledPixels> owner;
    Data pixels;
  };

  void giveBack(Data& pixels) {
    const std::lock_guard lock(mutex_);
    if (spare_.empty()) spare_.swap(pixels);
  }

  std::mutex mutex_;
  Data spare_;
};

}  // namespace tavrel
