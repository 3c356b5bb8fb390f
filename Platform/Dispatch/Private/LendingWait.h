#pragma once

#include <chrono>
#include <memory>

#include "Platform/Dispatch/Private/CurrentQueue.h"

namespace tavrel {

/// Waits with `wait`, which takes a time limit and is false when it is over. What the calling thread's queue lends is
/// lent only if it takes longer than a moment: most waits are short, and may lie between steps that belong together.
template <typename Wait>
bool waitLending(std::chrono::nanoseconds limit, const Wait& wait) {
  constexpr std::chrono::milliseconds kMoment(20);
  DispatchQueue* const queue = CurrentQueue::slot();
  if (!queue || limit <= kMoment) return wait(limit);
  if (wait(kMoment)) return true;
  const std::shared_ptr<void> lent = queue->lend();
  return wait(limit - kMoment);
}

}  // namespace tavrel
