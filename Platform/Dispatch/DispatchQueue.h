#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// How urgent a queue's work is. A serial queue of `utility` leaves the processor to others first, by the nice value of
/// its thread; without special rights Linux has nothing for the other values, which are kept for callers to read.
enum class QualityOfService : unsigned {
  userInteractive = 0x21,
  userInitiated = 0x19,
  standard = 0x15,
  utility = 0x11
};

/// With what a queue is created.
struct DispatchQueueAttribute {
  bool isSerial = true;
  QualityOfService qualityOfService = QualityOfService::standard;
  int relativePriority = 0;
  /// Whether blocks enter a driver such as GL's, which may be gone before the library is when the process ends.
  bool usesDriver = false;
  /// Where it is not 0, `fork` waits until no block runs, for a second at most, so that what the blocks keep is whole
  /// in the child. Queues of a lower rank come first, and their blocks may wait for those of a higher one.
  unsigned forkRank = 0;
};

/// A queue of blocks, on asio's executors.
///
/// A serial queue is one thread, named after the end of the label, that runs its blocks one after the other in the
/// order of submission. The main queue runs on the process's first thread, inside `RunLoop::main()`. The global queue
/// runs blocks concurrently. All operations may be called from any thread; blocks must not throw.
///
/// Destroying a serial queue runs what was submitted, then joins its thread (from inside one of its own blocks the
/// thread is joined later, by the time the process ends). Delayed blocks that are not yet due are dropped.
///
/// `exit` may be called on any thread, in a block too. Queues then finish the blocks that they are in, for half a
/// second at most, and begin no others; a thread that waits for one that will not begin stands still until the process
/// is gone. Where a driver is still busy after that time, the process ends at once, with its status.
///
/// In a child made by `fork` all queues work, with threads of their own, and are empty: what was submitted before stays
/// the parent's.
class TAVREL_API DispatchQueue : public std::enable_shared_from_this<DispatchQueue> {
 public:
  using Block = std::function<void()>;

  /// Creates a serial queue.
  static std::shared_ptr<DispatchQueue> create(std::string label, DispatchQueueAttribute attribute = {});
  /// The queue of the main thread. Its blocks wait until `RunLoop::main()` runs there.
  static const std::shared_ptr<DispatchQueue>& main();
  /// The process's concurrent queue, served by a few threads.
  static const std::shared_ptr<DispatchQueue>& global();

  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;
  ~DispatchQueue();

  const std::string& label() const;
  const DispatchQueueAttribute& attribute() const;

  /// Submits `block` and returns at once.
  void async(Block block);
  /// Submits `block` once `delay` has passed.
  void asyncAfter(std::chrono::nanoseconds delay, Block block);
  /// Runs `block` on the queue and returns after it. The global queue's runs on the calling thread. Calling it from a
  /// block of the same serial queue, which could never return, stops the program. `block` may return a value.
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

  /// Runs `block` on the calling thread in the place of the queue's own, when nothing that was submitted is left to do
  /// or that is so within `patience`; false when not, or when the queue has no thread of its own or is the current one.
  template <typename Callable>
  bool trySync(std::chrono::nanoseconds patience, Callable&& block) {
    return trySyncErased(
        patience, [](void* context) { (*static_cast<std::remove_reference_t<Callable>*>(context))(); }, address(block));
  }

  /// Stores a value under `key` (an address that nobody else uses); the queue does not own it. nullptr removes it.
  void setSpecific(const void* key, void* value);
  /// The value under `key` of the queue whose block the calling thread runs; nullptr outside any queue.
  static void* getSpecific(const void* key);
  /// The queue whose block the calling thread runs, or nullptr.
  static DispatchQueue* current();
  /// True inside a block of this queue.
  bool isCurrent() const { return current() == this; }

  /// Runs what was submitted and joins the thread of a serial queue. Afterwards `async` drops its block and `sync` runs
  /// it on the calling thread. Not from the queue itself.
  void shutDown();

 private:
  struct Implementation;
  friend class RunLoop;

  explicit DispatchQueue(std::unique_ptr<Implementation> implementation);

  template <typename Callable>
  static void* address(Callable& callable) {
    return const_cast<void*>(static_cast<const void*>(std::addressof(callable)));
  }
  void syncErased(void (*function)(void*), void* context);
  bool trySyncErased(std::chrono::nanoseconds patience, void (*function)(void*), void* context);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
