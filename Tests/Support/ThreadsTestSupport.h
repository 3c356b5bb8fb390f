#pragma once

#include <atomic>
#include <barrier>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "Support/GraphTestSupport.h"

namespace tavrel::test {

/// Feeds frames, one after the other, for as long as it lives.
class Feeder {
 public:
  explicit Feeder(std::shared_ptr<TavrelGPUImageCVPixelBufferInput> input)
      : thread_([this, input = std::move(input)] {
          const auto buffer = pixelBufferOf(distinctPicture(16, 12));
          for (int i = 0; !isDone_; ++i) input->processCVPixelBuffer(buffer, MediaTime::make(i, 30), true);
        }) {}
  Feeder(const Feeder&) = delete;
  Feeder& operator=(const Feeder&) = delete;
  ~Feeder() {
    isDone_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> isDone_ = false;
  std::thread thread_;
};

/// Runs `turns` turns of each of `works` at the same time, on threads of their own.
inline void runTogether(const std::vector<std::function<void(int turn)>>& works, int turns) {
  std::barrier start(static_cast<std::ptrdiff_t>(works.size()));
  std::vector<std::thread> threads;
  for (const auto& work : works) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (int turn = 0; turn < turns; ++turn) work(turn);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace tavrel::test
