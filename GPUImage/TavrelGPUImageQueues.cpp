#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <fstream>
#include <system_error>
#include <utility>

#include "GPUImage/Private/ContextLending.h"
#include "GPUImage/Private/OnVideoProcessingQueue.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Dispatch/RunLoop.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/ProcessEnd.h"

namespace tavrel {
namespace {

bool isInside(const TavrelGPUImageContext& context) {
  return context.contextQueue()->isCurrent() && !ForeignContextScope::innermost();
}

/// Runs `block` at once when the calling thread is on some context's queue; false when it is not. The thread that ends
/// the process gets past it: what it destroys after the driver cannot be released through the driver.
bool runInline(TavrelGPUImageContext& context, const std::function<void()>& block) {
  if (ProcessEnd::isOnEndingThread()) return true;
  if (isInside(context)) {
    block();
    return true;
  }
  const void* const running = DispatchQueue::getSpecific(TavrelGPUImageContext::contextKey());
  if (!running) return false;
  const ForeignContextScope scope;
  block();
  return true;
}

}  // namespace

bool isOnVideoProcessingQueue() {
  return isInside(*TavrelGPUImageContext::sharedImageProcessingContext()) && !ProcessEnd::isOnEndingThread();
}

DispatchQueueAttribute TavrelGPUImageDefaultQueueAttribute() {
  return {.isSerial = true, .qualityOfService = QualityOfService::standard, .relativePriority = 0};
}

void TavrelRunOnMainQueueWithoutDeadlocking(const std::function<void()>& block) {
  if (RunLoop::isMainThread()) {
    block();
  } else {
    DispatchQueue::main()->sync(block);
  }
}

void TavrelRunSynchronouslyOnContextQueue(TavrelGPUImageContext& context, const std::function<void()>& block) {
  if (!runInline(context, block)) context.contextQueue()->sync(block);
}

void TavrelRunAsynchronouslyOnContextQueue(TavrelGPUImageContext& context, std::function<void()> block) {
  if (!runInline(context, block)) context.contextQueue()->async(std::move(block));
}

void TavrelRunSynchronouslyOnVideoProcessingQueue(const std::function<void()>& block) {
  TavrelRunSynchronouslyOnContextQueue(*TavrelGPUImageContext::sharedImageProcessingContext(), block);
}

void TavrelRunAsynchronouslyOnVideoProcessingQueue(std::function<void()> block) {
  TavrelRunAsynchronouslyOnContextQueue(*TavrelGPUImageContext::sharedImageProcessingContext(), std::move(block));
}

void reportAvailableMemoryForTavrelGPUImage(std::string_view tag) {
  if (tag.empty()) tag = "Default";
  std::ifstream statistics("/proc/self/statm");
  std::uint64_t totalPages = 0;
  std::uint64_t residentPages = 0;
  errno = 0;
  if (!(statistics >> totalPages >> residentPages)) {
    ConsoleLog::write("{} - Error: {}", tag, std::generic_category().message(errno ? errno : EIO));
    return;
  }
  const auto bytes = static_cast<std::uint32_t>(residentPages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
  ConsoleLog::write("{} - Memory used: {}", tag, bytes);
}

}  // namespace tavrel
