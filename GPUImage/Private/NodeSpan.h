#pragma once

#include <typeinfo>

#include "GPUImage/Private/Rehearsal.h"
#include "Platform/Tracing/TraceSpan.h"

namespace tavrel {

class TavrelGPUImageInput;
class TavrelGPUImageOutput;

/// The work of one node on one frame, recorded under the name of the node's class. Spans of the nodes behind it nest
/// inside. On the video-processing queue the GPU's time is measured as well, from the moment the node has a target to
/// draw into up to the first node behind.
class NodeSpan : public TraceSpan {
 public:
  explicit NodeSpan(const TavrelGPUImageOutput& source) {
    if (isWanted()) beginSource(source);
  }
  /// One inside another of the same consumer is not recorded; nor is that of a filter that passed nothing on, since it
  /// waits for its other input, say.
  explicit NodeSpan(const TavrelGPUImageInput& consumer) {
    if (isWanted()) beginConsumer(consumer);
  }
  NodeSpan(const NodeSpan&) = delete;
  NodeSpan& operator=(const NodeSpan&) = delete;
  ~NodeSpan() {
    if (isActive()) endNode();
  }

  /// The innermost node is about to draw.
  static void noteDrawing();
  /// The innermost node has passed its frame on.
  static void notePassedOn();

 private:
  static bool isWanted() { return Tracer::isOn() && !Rehearsal::current(); }
  void beginSource(const TavrelGPUImageOutput& source);
  void beginConsumer(const TavrelGPUImageInput& consumer);
  void beginNode(const std::type_info& type, const void* node);
  void endNode();

  const void* node_ = nullptr;
  bool mustPassOn_ = false;
  bool hasPassedOn_ = false;
  TraceName name_ = 0;
  bool isTimingGPU_ = false;
  NodeSpan* outer_ = nullptr;
};

}  // namespace tavrel
