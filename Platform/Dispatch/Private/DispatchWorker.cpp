#include "Platform/Dispatch/Private/DispatchWorker.h"

#include <pthread.h>

#include <bit>
#include <utility>

#include "Platform/Dispatch/Private/CurrentQueue.h"
#include "Platform/Dispatch/Private/DispatchRuntime.h"
#include "Platform/Foundation/ProcessEnd.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {
namespace {

/// Linux shows at most 15 characters of a thread's name; the end of a label says most.
void nameThisThread(const std::string& label) {
  constexpr std::size_t kLongest = 15;
  const std::size_t start = label.size() > kLongest ? label.size() - kLongest : 0;
  pthread_setname_np(pthread_self(), label.c_str() + start);
  Tracer::nameThread(label);
}

}  // namespace

DispatchWorker::DispatchWorker(std::string label, std::size_t threads, bool usesDriver)
    : label_(std::move(label)), threadCount_(threads), usesDriver_(usesDriver) {}

DispatchWorker::ThreadState& DispatchWorker::ofThread() {
  static thread_local ThreadState state;
  return state;
}

void DispatchWorker::enter() {
  const ThreadState& state = ofThread();
  if (state.depth == 0) return;
  // Counted before the look, as closing comes before the count is read: one of the two sees the other.
  ++state.worker->threadsInBlocks_;
  if (!state.worker->isClosed_ || ProcessEnd::isOnEndingThread()) return;
  --state.worker->threadsInBlocks_;
  ProcessEnd::standStill();
}

void DispatchWorker::leave() {
  if (ofThread().depth > 0) --ofThread().worker->threadsInBlocks_;
}

void DispatchWorker::start(DispatchQueue* queue) {
  std::call_once(started_, [this, queue] {
    if (threadCount_ > 0) workGuard_.emplace(context_.get_executor());
    for (std::size_t i = 0; i < threadCount_; ++i) {
      threads_.emplace_back([queue, self = shared_from_this()] {
        nameThisThread(self->label_);
        const CurrentQueue scope(queue);
        ProcessEnd::watchThisThread();
        self->context_.run();
        ProcessEnd::stopWatchingThisThread();
      });
    }
  });
}

void DispatchWorker::post(Block block) {
  asio::post(context_, [this, block = std::move(block)]() mutable { run(block); });
}

void DispatchWorker::run(Block& block) {
  ThreadState& state = ofThread();
  state.worker = this;
  if (++state.depth == 1) enter();
  block();
  block = nullptr;  // what it holds is let go of inside it
  // What a driver uses for the first time registers its own end; that happens ever more rarely.
  if (usesDriver_ && std::has_single_bit(++blocksRun_)) ProcessEnd::comeFirst();
  if (state.depth == 1) leave();
  --state.depth;
}

void DispatchWorker::drainAndJoin() {
  workGuard_.reset();
  for (std::thread& thread : threads_) {
    if (thread.get_id() == std::this_thread::get_id()) {
      DispatchRuntime::shared().joinLater(std::move(thread));
    } else {
      thread.join();
    }
  }
  threads_.clear();
}

}  // namespace tavrel
