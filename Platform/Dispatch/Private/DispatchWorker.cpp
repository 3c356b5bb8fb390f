#include "Platform/Dispatch/Private/DispatchWorker.h"

#include <pthread.h>
#include <sys/resource.h>

#include <bit>
#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"
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

/// How much further back than others a thread stands for the processor that does what nobody waits for.
constexpr int kUtilityNiceness = 10;

}  // namespace

DispatchWorker::DispatchWorker(std::string label, std::size_t threads, DispatchQueueAttribute attribute)
    : label_(std::move(label)), threadCount_(threads), attribute_(attribute) {}

DispatchWorker::ThreadState& DispatchWorker::ofThread() {
  static thread_local ThreadState state;
  return state;
}

void DispatchWorker::enter() {
  const ThreadState& state = ofThread();
  if (state.depth == 0) return;
  // Counted before the look, as closing comes before the count is read: one of the two sees the other.
  ++state.worker->life_->threadsInBlocks;
  if (!state.worker->isClosed_ || ProcessEnd::isOnEndingThread()) return;
  --state.worker->life_->threadsInBlocks;
  ProcessEnd::standStill();
}

void DispatchWorker::leave() {
  if (ofThread().depth > 0) --ofThread().worker->life_->threadsInBlocks;
}

void DispatchWorker::start(DispatchQueue* queue) {
  std::call_once(life_->started, [this, queue] {
    if (threadCount_ > 0) life_->workGuard.emplace(life_->context.get_executor());
    for (std::size_t i = 0; i < threadCount_; ++i) {
      life_->threads.emplace_back([queue, self = shared_from_this()] {
        nameThisThread(self->label_);
        // On Linux, of this thread alone.
        if (self->attribute_.qualityOfService == QualityOfService::utility) {
          setpriority(PRIO_PROCESS, 0, kUtilityNiceness);
        }
        const CurrentQueue scope(queue);
        ProcessEnd::watchThisThread();
        self->life_->context.run();
        ProcessEnd::stopWatchingThisThread();
      });
    }
  });
}

void DispatchWorker::post(Block block) {
  ++life_->unfinished;
  asio::post(life_->context, [this, block = std::move(block)]() mutable { run(block); });
}

bool DispatchWorker::runHere(DispatchQueue* queue, std::chrono::nanoseconds patience, void (*function)(void*),
                             void* context) {
  if (threadCount_ != 1) return false;
  giveWay();
  std::optional<std::chrono::steady_clock::time_point> deadline;  // asking for the time is dear
  for (std::unique_lock turn(life_->turn, std::defer_lock);;) {
    const bool isMine = turn.try_lock();
    if (isMine && life_->unfinished == 0) {
      const CurrentQueue scope(queue);
      function(context);
      return true;
    }
    if (!deadline) deadline = std::chrono::steady_clock::now() + patience;
    if (std::chrono::steady_clock::now() >= *deadline) return false;
    if (isMine) {
      // Blocks wait for the thread, and come first.
      turn.unlock();
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    } else if (turn.try_lock_until(*deadline)) {
      turn.unlock();
    }
  }
}

bool DispatchWorker::tryHold(std::chrono::milliseconds patience) {
  life_->isTurnWanted = true;
  const bool isHeld = life_->turn.try_lock_for(patience);
  life_->isTurnWanted = false;
  return isHeld;
}

void DispatchWorker::giveWay() const {
  while (life_->isTurnWanted) std::this_thread::sleep_for(std::chrono::microseconds(50));
}

void DispatchWorker::renew() {
  // Never destroyed: its threads are not there to be joined, nor its locks to be had.
  static auto* const abandoned = new std::vector<std::unique_ptr<Life>>;
  abandoned->push_back(std::exchange(life_, std::make_unique<Life>()));
}

void DispatchWorker::run(Block& block) {
  std::unique_lock turn(life_->turn, std::defer_lock);
  if (threadCount_ == 1) {
    giveWay();
    turn.lock();
  }
  ThreadState& state = ofThread();
  state.worker = this;
  if (++state.depth == 1) enter();
  block();
  block = nullptr;  // what it holds is let go of inside it
  // What a driver uses for the first time registers its own end; that happens ever more rarely.
  if (attribute_.usesDriver && std::has_single_bit(++blocksRun_)) ProcessEnd::comeFirst();
  if (state.depth == 1) leave();
  --state.depth;
  --life_->unfinished;
}

void DispatchWorker::drainAndJoin() {
  // A block may come from another thread at this very moment, and begin them.
  std::call_once(life_->started, [] {});
  life_->workGuard.reset();
  for (std::thread& thread : life_->threads) {
    if (thread.get_id() == std::this_thread::get_id()) {
      DispatchRuntime::shared().joinLater(std::move(thread));
    } else {
      thread.join();
    }
  }
  life_->threads.clear();
}

}  // namespace tavrel
