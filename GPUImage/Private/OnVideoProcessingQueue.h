#pragma once

#include <functional>
#include <optional>
#include <type_traits>
#include <utility>

#include "GPUImage/TavrelGPUImageContext.h"

namespace tavrel {

/// Whether a block of the video-processing queue runs on the calling thread, and inside it none of another context's.
bool isOnVideoProcessingQueue();

/// Runs `work` on the video-processing queue, where the state of nodes lives, and returns what it returns: between two
/// frames, or at once inside a frame's own work. Any thread. For the thread that ends the process nothing runs any
/// more, and it gets an empty result.
template <typename Work>
auto onVideoProcessingQueue(Work&& work) -> std::invoke_result_t<Work&> {
  using Result = std::invoke_result_t<Work&>;
  if (isOnVideoProcessingQueue()) return work();
  if constexpr (std::is_void_v<Result>) {
    TavrelRunSynchronouslyOnVideoProcessingQueue(std::ref(work));
  } else {
    std::optional<Result> result;
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] { result.emplace(work()); });
    return result ? std::move(*result) : Result();
  }
}

}  // namespace tavrel
