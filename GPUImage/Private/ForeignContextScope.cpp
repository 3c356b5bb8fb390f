#include "GPUImage/Private/ForeignContextScope.h"

#include <utility>

#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Graphics/GLContext.h"

namespace tavrel {
namespace {

thread_local ForeignContextScope* innermostScope = nullptr;

}  // namespace

struct ForeignContextScope::Loan {
  DispatchSemaphore lent{0};
  DispatchSemaphore returned{0};
};

ForeignContextScope::ForeignContextScope()
    : outer_(std::exchange(innermostScope, this)), previous_(GLContext::current()) {}

ForeignContextScope::~ForeignContextScope() {
  innermostScope = outer_;
  if (GLContext::current() != previous_) {
    if (!previous_ || !previous_->makeCurrent()) GLContext::clearCurrent();
  }
  for (const std::shared_ptr<Loan>& loan : loans_) loan->returned.signal();
}

ForeignContextScope* ForeignContextScope::innermost() { return innermostScope; }

void ForeignContextScope::borrow(const std::shared_ptr<DispatchQueue>& owner) {
  // The calling thread's own context is let go first: whoever waits for it in turn is not kept waiting.
  GLContext::clearCurrent();
  auto loan = std::make_shared<Loan>();
  owner->async([loan] {
    GLContext::clearCurrent();
    loan->lent.signal();
    loan->returned.wait();
  });
  loan->lent.wait();
  loans_.push_back(std::move(loan));
}

}  // namespace tavrel
