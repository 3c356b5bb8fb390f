#include "Platform/Dispatch/DispatchQueue.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Dispatch/Private/CurrentQueue.h"
#include "Platform/Dispatch/Private/DispatchRuntime.h"
#include "Platform/Foundation/FatalAssertion.h"
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

struct DispatchQueue::Implementation {
  std::string label;
  DispatchQueueAttribute attribute;
  std::shared_ptr<asio::io_context> context = std::make_shared<asio::io_context>();
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> workGuard;
  std::vector<std::thread> threads;
  std::atomic<bool> isShutDown = false;
  std::mutex specificsMutex;
  std::map<const void*, void*> specifics;

  std::once_flag started;
  std::size_t threadCount = 0;

  /// Threads begin with the first submission: a queue that is never used costs none.
  void startThreads(DispatchQueue* queue) {
    std::call_once(started, [this, queue] { createThreads(queue); });
  }

  void createThreads(DispatchQueue* queue) {
    if (threadCount > 0) workGuard.emplace(context->get_executor());
    for (std::size_t i = 0; i < threadCount; ++i) {
      threads.emplace_back([queue, name = label, keptContext = context] {
        nameThisThread(name);
        const CurrentQueue scope(queue);
        keptContext->run();
      });
    }
  }

  void drainAndJoin() {
    isShutDown = true;
    workGuard.reset();
    for (std::thread& thread : threads) {
      if (thread.get_id() == std::this_thread::get_id()) {
        DispatchRuntime::shared().joinLater(std::move(thread));
      } else {
        thread.join();
      }
    }
    threads.clear();
  }
};

DispatchQueue::DispatchQueue(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

DispatchQueue::~DispatchQueue() {
  if (implementation_->isShutDown) return;
  // The last block may have released its own queue: what follows on this thread must not see it any more.
  if (isCurrent()) CurrentQueue::slot() = nullptr;
  implementation_->drainAndJoin();
}

std::shared_ptr<DispatchQueue> DispatchQueue::create(std::string label, DispatchQueueAttribute attribute) {
  DispatchRuntime::shared();  // created first, hence torn down after every queue that lives until the process ends
  auto implementation = std::make_unique<Implementation>();
  implementation->label = std::move(label);
  implementation->attribute = attribute;
  implementation->threadCount = 1;
  return std::shared_ptr<DispatchQueue>(new DispatchQueue(std::move(implementation)));
}

const std::shared_ptr<DispatchQueue>& DispatchQueue::main() {
  static const auto* queue = [] {
    auto implementation = std::make_unique<Implementation>();
    implementation->label = "main";
    implementation->context = DispatchRuntime::shared().mainContext();
    return new std::shared_ptr<DispatchQueue>(new DispatchQueue(std::move(implementation)));
  }();
  return *queue;
}

const std::shared_ptr<DispatchQueue>& DispatchQueue::global() {
  static const auto* queue = [] {
    auto implementation = std::make_unique<Implementation>();
    implementation->label = "tavrel.global";
    implementation->attribute.isSerial = false;
    implementation->threadCount = std::max(4U, std::thread::hardware_concurrency());
    auto* shared = new std::shared_ptr<DispatchQueue>(new DispatchQueue(std::move(implementation)));
    DispatchRuntime::shared().atExit([shared] { (*shared)->shutDown(); });
    return shared;
  }();
  return *queue;
}

const std::string& DispatchQueue::label() const {
  return implementation_->label;
}

const DispatchQueueAttribute& DispatchQueue::attribute() const {
  return implementation_->attribute;
}

void DispatchQueue::async(Block block) {
  if (implementation_->isShutDown && !isCurrent()) return;
  implementation_->startThreads(this);
  asio::post(*implementation_->context, [block = std::move(block)] { block(); });
  if (this == main().get()) DispatchRuntime::shared().wakeMain();
}

void DispatchQueue::asyncAfter(std::chrono::nanoseconds delay, Block block) {
  DispatchRuntime::shared().runAfter(delay, [weak = weak_from_this(), block = std::move(block)]() mutable {
    if (const auto queue = weak.lock()) queue->async(std::move(block));
  });
}

void DispatchQueue::syncErased(void (*function)(void*), void* context) {
  if (isCurrent() && implementation_->attribute.isSerial) {
    fatalAssertion("DispatchQueue::sync called on queue \"{}\" from one of its own blocks", label());
  }
  if (implementation_->isShutDown) {
    const CurrentQueue scope(this);
    function(context);
    return;
  }
  implementation_->startThreads(this);
  DispatchSemaphore done(0);
  asio::post(*implementation_->context, [&] {
    function(context);
    done.signal();
  });
  if (this == main().get()) DispatchRuntime::shared().wakeMain();
  done.wait();
}

void DispatchQueue::setSpecific(const void* key, void* value) {
  const std::lock_guard lock(implementation_->specificsMutex);
  if (value) {
    implementation_->specifics[key] = value;
  } else {
    implementation_->specifics.erase(key);
  }
}

void* DispatchQueue::getSpecific(const void* key) {
  DispatchQueue* const queue = current();
  if (!queue) return nullptr;
  Implementation& implementation = *queue->implementation_;
  const std::lock_guard lock(implementation.specificsMutex);
  const auto entry = implementation.specifics.find(key);
  return entry == implementation.specifics.end() ? nullptr : entry->second;
}

DispatchQueue* DispatchQueue::current() {
  return CurrentQueue::slot();
}

void DispatchQueue::shutDown() {
  if (implementation_->isShutDown) return;
  implementation_->drainAndJoin();
}

}  // namespace tavrel
