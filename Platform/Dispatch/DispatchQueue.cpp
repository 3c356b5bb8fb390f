#include "Platform/Dispatch/DispatchQueue.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Dispatch/Private/CurrentQueue.h"
#include "Platform/Dispatch/Private/DispatchRuntime.h"
#include "Platform/Dispatch/Private/LendingWait.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/ProcessEnd.h"

namespace tavrel {

struct DispatchQueue::Implementation {
  Implementation(std::string newLabel, DispatchQueueAttribute newAttribute, std::shared_ptr<DispatchWorker> newWorker)
      : label(std::move(newLabel)), attribute(newAttribute), worker(std::move(newWorker)) {}

  const std::string label;
  const DispatchQueueAttribute attribute;
  const std::shared_ptr<DispatchWorker> worker;
  std::atomic<bool> isShutDown = false;
  std::mutex specificsMutex;
  std::map<const void*, void*> specifics;
  Lender lender;

  void post(DispatchQueue* queue, Block block) const {
    worker->start(queue);
    worker->post(std::move(block));
    DispatchRuntime& runtime = DispatchRuntime::shared();
    if (worker == runtime.mainWorker()) runtime.wakeMain();
  }
};

DispatchQueue::DispatchQueue(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

DispatchQueue::~DispatchQueue() {
  if (implementation_->isShutDown) return;
  // The last block may have released its own queue: what follows on this thread must not see it any more.
  if (isCurrent()) CurrentQueue::slot() = nullptr;
  // Closed with the process, its threads stand still.
  if (!implementation_->worker->isClosed()) implementation_->worker->drainAndJoin();
}

std::shared_ptr<DispatchQueue> DispatchQueue::create(std::string label, DispatchQueueAttribute attribute) {
  auto worker = DispatchRuntime::shared().makeWorker(label, 1, attribute);
  auto implementation = std::make_unique<Implementation>(std::move(label), attribute, std::move(worker));
  return std::shared_ptr<DispatchQueue>(new DispatchQueue(std::move(implementation)));
}

const std::shared_ptr<DispatchQueue>& DispatchQueue::main() {
  static const auto* queue = [] {
    auto implementation =
        std::make_unique<Implementation>("main", DispatchQueueAttribute{}, DispatchRuntime::shared().mainWorker());
    return new std::shared_ptr<DispatchQueue>(new DispatchQueue(std::move(implementation)));
  }();
  return *queue;
}

const std::shared_ptr<DispatchQueue>& DispatchQueue::global() {
  static const auto* queue = [] {
    constexpr const char* kLabel = "tavrel.global";
    auto worker = DispatchRuntime::shared().makeWorker(kLabel, std::max(4U, std::thread::hardware_concurrency()), {});
    auto implementation =
        std::make_unique<Implementation>(kLabel, DispatchQueueAttribute{.isSerial = false}, std::move(worker));
    return new std::shared_ptr<DispatchQueue>(new DispatchQueue(std::move(implementation)));
  }();
  return *queue;
}

const std::string& DispatchQueue::label() const { return implementation_->label; }

const DispatchQueueAttribute& DispatchQueue::attribute() const { return implementation_->attribute; }

void DispatchQueue::async(Block block) {
  if (implementation_->isShutDown && !isCurrent()) return;
  implementation_->post(this, std::move(block));
}

void DispatchQueue::asyncAfter(std::chrono::nanoseconds delay, Block block) {
  DispatchRuntime::shared().runAfter(delay, [weak = weak_from_this(), block = std::move(block)]() mutable {
    if (const auto queue = weak.lock()) queue->async(std::move(block));
  });
}

void DispatchQueue::syncErased(void (*function)(void*), void* context) {
  ProcessEnd::watchThisThread();  // it uses the library, and may well end the process
  const bool isSerial = implementation_->attribute.isSerial;
  if (isCurrent() && isSerial) {
    fatalAssertion("DispatchQueue::sync called on queue \"{}\" from one of its own blocks", label());
  }
  const bool isEnding = implementation_->worker->isClosed();
  if (isEnding && !ProcessEnd::isOnEndingThread()) ProcessEnd::standStill();
  // A concurrent queue's block may run anywhere, so that none of its threads has to be free.
  if (isEnding || !isSerial || implementation_->isShutDown) {
    const CurrentQueue scope(this);
    function(context);
    return;
  }
  DispatchSemaphore done(0);
  implementation_->post(this, [&] {
    function(context);
    done.signal();
  });
  waitLending(std::chrono::nanoseconds::max(), [&](auto limit) {
    const DispatchWorker::Rest rest;
    return done.waitHolding(limit);
  });
}

void DispatchQueue::setLender(Lender lend) { implementation_->lender = std::move(lend); }

std::shared_ptr<void> DispatchQueue::lend() const {
  return implementation_->lender ? implementation_->lender() : nullptr;
}

bool DispatchQueue::trySyncErased(std::chrono::nanoseconds patience, void (*function)(void*), void* context) {
  if (isCurrent() || implementation_->isShutDown || implementation_->worker->isClosed()) return false;
  return implementation_->worker->runHere(this, patience, function, context);
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

DispatchQueue* DispatchQueue::current() { return CurrentQueue::slot(); }

void DispatchQueue::shutDown() {
  if (implementation_->isShutDown.exchange(true) || implementation_->worker->isClosed()) return;
  implementation_->worker->drainAndJoin();
}

}  // namespace tavrel
