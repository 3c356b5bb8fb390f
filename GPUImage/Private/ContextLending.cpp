#include "GPUImage/Private/ContextLending.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "Platform/Graphics/GLContext.h"

namespace tavrel {
namespace {

/// One for all contexts: a turn with one ends where another begins.
struct Turns {
  std::mutex mutex;
  std::condition_variable changed;
};

Turns& turns() {
  static auto* shared = new Turns;  // threads may wait in it while the process ends
  return *shared;
}

thread_local ForeignContextScope* innermostScope = nullptr;

/// What the calling thread took last.
struct Use {
  ContextLending* lending = nullptr;
  GLContext* context = nullptr;
};
thread_local Use inUse;

const char lendingKey = 0;

}  // namespace

ContextLending::ContextLending(std::shared_ptr<DispatchQueue> owner) : owner_(std::move(owner)) {
  owner_->setSpecific(&lendingKey, this);
  owner_->setLender([] { return std::make_shared<ContextWait>(); });
}

ContextLending::~ContextLending() { owner_->setSpecific(&lendingKey, nullptr); }

ContextLending* ContextLending::ofCallingThread() {
  return static_cast<ContextLending*>(DispatchQueue::getSpecific(&lendingKey));
}

bool ContextLending::take(GLContext& context) {
  const bool isOwn = owner_->isCurrent();
  if (!isOwn && !innermostScope) return context.makeCurrent();
  letGo();
  if (!isOwn && !innermostScope->hasAskedFor(*this)) innermostScope->askFor(*this);
  waitForTurn(isOwn);
  inUse = {this, &context};
  return context.makeCurrent();
}

void ContextLending::waitForTurn(bool isOwn) {
  ContextLending& own = *ofCallingThread();
  std::unique_lock lock(turns().mutex);
  own.isOwnAside_ = true;
  turns().changed.notify_all();
  turns().changed.wait(lock, [&] { return !isTaken_ && (isOwn || isOwnAside_); });
  own.isOwnAside_ = false;
  isTaken_ = !isOwn;
}

void ContextLending::letGo() {
  GLContext::clearCurrent();
  ContextLending* const used = std::exchange(inUse, {}).lending;
  if (!used || used->owner_->isCurrent()) return;
  const std::lock_guard lock(turns().mutex);
  used->isTaken_ = false;
  turns().changed.notify_all();
}

void ContextLending::standAside(const std::shared_ptr<const bool>& isOver) {
  letGo();
  std::unique_lock lock(turns().mutex);
  isOwnAside_ = true;
  turns().changed.notify_all();
  turns().changed.wait(lock, [&] { return *isOver && !isTaken_; });
  isOwnAside_ = false;
}

ContextLending::Current::Current()
    : context(GLContext::current()), lending(inUse.context == context ? inUse.lending : nullptr) {}

void ContextLending::Current::restore() const {
  if (GLContext::current() == context) return;
  if (!context) return letGo();
  if (!(lending ? lending->take(*context) : context->makeCurrent())) GLContext::clearCurrent();
}

ForeignContextScope::ForeignContextScope() : outer_(std::exchange(innermostScope, this)) {}

ForeignContextScope::~ForeignContextScope() {
  previous_.restore();
  innermostScope = outer_;
  const std::lock_guard lock(turns().mutex);
  *isOver_ = true;
  turns().changed.notify_all();
}

ForeignContextScope* ForeignContextScope::innermost() { return innermostScope; }

bool ForeignContextScope::hasAskedFor(const ContextLending& lending) const {
  return std::find(asked_.begin(), asked_.end(), &lending) != asked_.end() || (outer_ && outer_->hasAskedFor(lending));
}

void ForeignContextScope::askFor(ContextLending& lending) {
  asked_.push_back(&lending);
  lending.owner_->async([&lending, isOver = isOver_] {
    {
      const std::lock_guard lock(turns().mutex);
      if (*isOver) return;  // the context may be gone by now
    }
    lending.standAside(isOver);
  });
}

ContextWait::ContextWait() {
  if (!own_) return;
  ContextLending::letGo();
  const std::lock_guard lock(turns().mutex);
  own_->isOwnAside_ = true;
  turns().changed.notify_all();
}

ContextWait::~ContextWait() {
  if (!own_) return;
  {
    std::unique_lock lock(turns().mutex);
    turns().changed.wait(lock, [this] { return !own_->isTaken_; });
    own_->isOwnAside_ = false;
  }
  previous_.restore();
}

}  // namespace tavrel
