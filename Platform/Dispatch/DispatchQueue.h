#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// How urgent a queue's work is. `utility` raises the nice value of a serial queue's thread. The other values are only
/// informative, as raising a priority needs privileges on Linux.
enum class QualityOfService : unsigned {
  userInteractive = 0x21,
  userInitiated = 0x19,
  standard = 0x15,
  utility = 0x11
};

/// Attributes of a new queue.
struct DispatchQueueAttribute {
  bool isSerial = true;
  QualityOfService qualityOfService = QualityOfService::standard;
  int relativePriority = 0;
  /// Whether blocks call a driver such as GL, which may be unloaded before the library when the process ends.
  bool usesDriver = false;
  /// Unless 0, `fork` waits, at most a second, until no block runs, so that the blocks' data is consistent in the
  /// child. It waits for lower ranks first, so their blocks may wait for those of a higher rank.
  unsigned forkRank = 0;
};

/// A queue of blocks, on asio.
///
/// A serial queue runs its blocks one at a time, in the order of submission, on its own thread, which is named after
/// the end of the label. The main queue runs on the process's first thread, inside `RunLoop::main()`. The global queue
/// runs blocks concurrently. Blocks must not throw. Any thread.
///
/// Destroying a serial queue runs the submitted blocks, then joins the thread; if one of its own blocks destroys it,
/// the thread is joined later. Delayed blocks that are not yet due are discarded.
///
/// `exit` may be called on any thread, even in a block. Queues then begin no further blocks, and running ones have at
/// most half a second to finish; a thread that waits for such a block is suspended until the process is gone. If a
/// driver is still busy after that time, the process ends at once, with its status.
///
/// In a forked child all queues work, with new threads, and are empty: submitted blocks stay with the parent.
class TAVREL_API DispatchQueue : public std::enable_shared_from_this<DispatchQueue> {
 public:
  using Block = std::function<void()>;

  /// Creates a serial queue.
  static std::shared_ptr<DispatchQueue> create(std::string label, DispatchQueueAttribute attribute = {});
  /// The main thread's queue; its blocks run while `RunLoop::main()` runs.
  static const std::shared_ptr<DispatchQueue>& main();
  /// The process's concurrent queue, with a fixed number of threads.
  static const std::shared_ptr<DispatchQueue>& global();

  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;
  ~DispatchQueue();

  const std::string& label() const;
  const DispatchQueueAttribute& attribute() const;

  void async(Block block);
  /// Submits `block` after `delay`.
  void asyncAfter(std::chrono::nanoseconds delay, Block block);
  /// Runs `block` on the queue, waits for it and returns its result. The global queue runs it on the calling thread.
  /// Called from a block of the same serial queue, where it would deadlock, it stops the program.
  template <typename Callable>
  auto sync(Callable&& block) -> std::invoke_result_t<Callable&> {
    using Result = std::invoke_result_t<Callable&>;
    if constexpr (std::is_void_v<Result>) {
      syncErased([](void* context) { (*static_cast<std::remove_reference_t<Callable>*>(context))(); }, address(block));
    } else {
      struct Call {
        std::remove_reference_t<Callable>* block;
        std::unique_ptr<Result> result;
      } call{&block, nullptr};
      syncErased(
          [](void* context) {
            auto* inner = static_cast<Call*>(context);
            inner->result = std::make_unique<Result>((*inner->block)());
          },
          &call);
      return std::move(*call.result);
    }
  }

  /// Runs `block` on the calling thread in place of the queue's, once all submitted blocks have run. False if that
  /// takes longer than `patience`, or if the queue has no thread of its own or is the current one.
  template <typename Callable>
  bool trySync(std::chrono::nanoseconds patience, Callable&& block) {
    return trySyncErased(
        patience, [](void* context) { (*static_cast<std::remove_reference_t<Callable>*>(context))(); }, address(block));
  }

  /// Stores a value, which the queue does not own, under `key`, a unique address. nullptr removes it.
  void setSpecific(const void* key, void* value);
  /// The value under `key` of the current queue; nullptr outside any queue.
  static void* getSpecific(const void* key);
  /// For what a block of this queue holds and others may need while it waits for a semaphore, a group or another queue,
  /// if that takes longer than 20 ms: `lend` is called before, on the queue, and its result destroyed after the wait.
  using Lender = std::function<std::shared_ptr<void>()>;
  /// Set it before the first block.
  void setLender(Lender lend);
  /// The queue whose block the calling thread is running, or nullptr.
  static DispatchQueue* current();
  bool isCurrent() const { return current() == this; }

  /// Runs the submitted blocks and joins a serial queue's thread. Afterwards `async` discards its block and `sync` runs
  /// it on the calling thread. Do not call it on the queue itself.
  void shutDown();

 private:
  struct Implementation;
  friend class RunLoop;
  template <typename Wait>
  friend bool waitLending(std::chrono::nanoseconds limit, const Wait& wait);

  explicit DispatchQueue(std::unique_ptr<Implementation> implementation);

  template <typename Callable>
  static void* address(Callable& callable) {
    return const_cast<void*>(static_cast<const void*>(std::addressof(callable)));
  }
  std::shared_ptr<void> lend() const;
  void syncErased(void (*function)(void*), void* context);
  bool trySyncErased(std::chrono::nanoseconds patience, void (*function)(void*), void* context);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
