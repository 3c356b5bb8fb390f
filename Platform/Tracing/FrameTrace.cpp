#include "Platform/Tracing/FrameTrace.h"

#include <atomic>

namespace tavrel {
namespace {

thread_local std::uint32_t currentNumber = 0;
thread_local std::int64_t currentArrival = 0;

}  // namespace

FrameTrace FrameTrace::arriving() {
  static std::atomic<std::uint32_t> latest = 0;
  if (!Tracer::isOn()) return {};
  return {latest.fetch_add(1, std::memory_order_relaxed) + 1, Tracer::now()};
}

FrameTrace FrameTrace::current() { return {currentNumber, currentArrival}; }

FrameTrace FrameTrace::currentOrArriving() { return currentNumber > 0 ? current() : arriving(); }

FrameTrace::Scope::Scope(const FrameTrace& frame) : outerNumber_(currentNumber), outerArrival_(currentArrival) {
  currentNumber = frame.number;
  currentArrival = frame.arrival;
}

FrameTrace::Scope::~Scope() {
  currentNumber = outerNumber_;
  currentArrival = outerArrival_;
}

}  // namespace tavrel
