#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Dispatch/Private/Asio.h"

namespace tavrel {

class DispatchQueue;

/// What runs a queue's blocks: threads of its own or, for the main queue, the run loop. It lives as long as its
/// threads, which a queue whose last reference goes inside one of its own blocks does not. Any thread.
class DispatchWorker : public std::enable_shared_from_this<DispatchWorker> {
 public:
  using Block = std::function<void()>;

  /// `usesDriver`: see `DispatchQueueAttribute`. With no threads, whoever has the context runs the blocks.
  DispatchWorker(std::string label, std::size_t threads, bool usesDriver);

  asio::io_context& context() { return context_; }
  bool usesDriver() const { return usesDriver_; }

  /// Begins the threads, once: a queue that is never used costs none.
  void start(DispatchQueue* queue);
  void post(Block block);
  /// Runs what was posted, then joins the threads; the calling one is joined with the process's end.
  void drainAndJoin();

  /// No block begins any more; those posted and not begun stay where they are, undestroyed. For the end of the process.
  void close() { isClosed_ = true; }
  bool isClosed() const { return isClosed_; }
  /// Whether no thread is inside a block, but those that wait in `sync`; once closed it stays so.
  bool isAtRest() const { return threadsInBlocks_ == 0; }

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
  void run(Block& block);

  const std::string label_;
  const std::size_t threadCount_;
  const bool usesDriver_;
  asio::io_context context_;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> workGuard_;
  std::once_flag started_;
  std::vector<std::thread> threads_;
  std::atomic<bool> isClosed_ = false;
  std::atomic<int> threadsInBlocks_ = 0;
  std::atomic<unsigned> blocksRun_ = 0;
};

}  // namespace tavrel
