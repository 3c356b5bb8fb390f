#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Dispatch/Private/Asio.h"

namespace tavrel {

/// What runs a queue's blocks: threads of its own or, for the main queue, the run loop. It lives as long as its
/// threads, which a queue whose last reference goes inside one of its own blocks does not. Any thread.
class DispatchWorker : public std::enable_shared_from_this<DispatchWorker> {
 public:
  using Block = std::function<void()>;

  /// With no threads, whoever has the context runs the blocks.
  DispatchWorker(std::string label, std::size_t threads, DispatchQueueAttribute attribute);

  asio::io_context& context() { return life_->context; }
  bool usesDriver() const { return attribute_.usesDriver; }
  unsigned forkRank() const { return attribute_.forkRank; }

  /// Begins the threads, once: a queue that is never used costs none.
  void start(DispatchQueue* queue);
  void post(Block block);
  /// See `DispatchQueue::trySync`.
  bool runHere(DispatchQueue* queue, std::chrono::nanoseconds patience, void (*function)(void*), void* context);
  /// Around `fork`: while the one thread is held, it is between two blocks.
  bool tryHold(std::chrono::milliseconds patience);
  void letGo() { life_->turn.unlock(); }
  /// In a forked child, which has none of the threads: begins afresh, without what was posted.
  void renew();
  /// Runs what was posted, then joins the threads; the calling one is joined with the process's end.
  void drainAndJoin();

  /// No block begins any more; those posted and not begun stay where they are, undestroyed. For the end of the process.
  void close() { isClosed_ = true; }
  bool isClosed() const { return isClosed_; }
  /// Whether no thread is inside a block, but those that wait in `sync`; once closed it stays so.
  bool isAtRest() const { return life_->threadsInBlocks == 0; }

  /// A stretch in which the calling thread's block waits for another queue's. It does not end for a worker that was
  /// closed meanwhile.
  class Rest {
   public:
    Rest() { leave(); }
    Rest(const Rest&) = delete;
    Rest& operator=(const Rest&) = delete;
    ~Rest() { enter(); }
  };
  /// The calling thread will never go on with its block.
  static void leave();

 private:
  struct ThreadState {
    DispatchWorker* worker = nullptr;
    int depth = 0;  // of blocks inside blocks, as nested run loops have them
  };
  static ThreadState& ofThread();
  static void enter();
  void giveWay() const;
  void run(Block& block);

  /// What a forked child cannot take over.
  struct Life {
    asio::io_context context;
    std::optional<asio::executor_work_guard<asio::io_context::executor_type>> workGuard;
    std::once_flag started;
    std::vector<std::thread> threads;
    std::timed_mutex turn;                   // held by who runs a block of the only thread
    std::atomic<bool> isTurnWanted = false;  // by a fork, which would seldom get it otherwise
    std::atomic<unsigned> unfinished = 0;
    std::atomic<int> threadsInBlocks = 0;
  };

  const std::string label_;
  const std::size_t threadCount_;
  const DispatchQueueAttribute attribute_;
  std::unique_ptr<Life> life_ = std::make_unique<Life>();
  std::atomic<bool> isClosed_ = false;
  std::atomic<unsigned> blocksRun_ = 0;
};

}  // namespace tavrel
