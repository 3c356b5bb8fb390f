#pragma once

#include <cstdint>

#include "Platform/Foundation/Export.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {

/// Records work on the calling thread from construction to destruction: `const TraceSpan span(name);`. Spans nest; the
/// statistics exclude inner spans from outer ones. A span that begins while tracing is off is not recorded.
class TAVREL_API TraceSpan {
 public:
  explicit TraceSpan(TraceName name) {
    if (Tracer::isOn()) begin(name);
  }
  TraceSpan(const TraceSpan&) = delete;
  TraceSpan& operator=(const TraceSpan&) = delete;
  ~TraceSpan() {
    if (isActive_) end();
  }

 protected:
  /// Not started until `begin`.
  TraceSpan() = default;
  void begin(TraceName name);
  bool isActive() const { return isActive_; }
  std::int64_t beginning() const { return begin_; }
  /// Excludes the span from outer ones without recording it.
  void discard() { isDiscarded_ = true; }

 private:
  void end();

  bool isActive_ = false;
  bool isDiscarded_ = false;
  TraceName name_ = 0;
  std::int64_t begin_ = 0;
  std::int64_t inner_ = 0;  // what was measured inside
  TraceSpan* outer_ = nullptr;
};

}  // namespace tavrel
