#include "Platform/Tracing/TraceSpan.h"

namespace tavrel {
namespace {

thread_local TraceSpan* innermost = nullptr;

}  // namespace

void TraceSpan::begin(TraceName name) {
  isActive_ = true;
  name_ = name;
  outer_ = innermost;
  innermost = this;
  begin_ = Tracer::now();
}

void TraceSpan::end() {
  const std::int64_t now = Tracer::now();
  innermost = outer_;
  // Who leaves no mark leaves its time to those around it.
  if (outer_) outer_->inner_ += isDiscarded_ ? inner_ : now - begin_;
  if (!isDiscarded_ && Tracer::isOn()) Tracer::span(name_, begin_, now, now - begin_ - inner_);
}

}  // namespace tavrel
