#include "GPUImage/Sources/Private/MoviePacer.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <thread>

namespace tavrel {
namespace {

double now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

}  // namespace

void MoviePacer::restart() {
  previousFrameTime_ = MediaTime::zero();
  previousActualFrameTime_ = now();
}

void MoviePacer::waitFor(MediaTime time) {
  const double differenceFromLastFrame = (time - previousFrameTime_).seconds();
  const double actualTimeDifference = now() - previousActualFrameTime_;
  if (differenceFromLastFrame > actualTimeDifference) {
    const double microseconds = (differenceFromLastFrame - actualTimeDifference) * 1'000'000;
    std::this_thread::sleep_for(std::chrono::microseconds(static_cast<std::int32_t>(std::min(microseconds, 2e9))));
  }
  previousFrameTime_ = time;
  previousActualFrameTime_ = now();
}

}  // namespace tavrel
