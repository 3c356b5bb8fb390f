#include "GPUImage/Private/NodeSpan.h"

#include <cxxabi.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "GPUImage/Private/GPUTimer.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageInput.h"
#include "GPUImage/TavrelGPUImageOutput.h"

namespace tavrel {
namespace {

thread_local NodeSpan* innermostNode = nullptr;

std::string readableName(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> demangled(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                         std::free);
  std::string name = demangled ? demangled.get() : type.name();
  constexpr std::string_view kNamespace = "tavrel::";
  if (name.starts_with(kNamespace)) name.erase(0, kNamespace.size());
  return name;
}

/// The name of a class, looked up without a lock once it is known.
TraceName nameOf(const std::type_info& type) {
  struct Entry {
    std::atomic<const std::type_info*> type = nullptr;
    std::atomic<int> name = -1;
  };
  constexpr std::size_t kEntries = 128;
  static auto* const entries = new std::array<Entry, kEntries>;
  const std::size_t start = std::hash<const void*>()(&type) / alignof(std::type_info);
  for (std::size_t i = 0; i < kEntries; ++i) {
    Entry& entry = (*entries)[(start + i) % kEntries];
    const std::type_info* known = entry.type.load(std::memory_order_relaxed);
    if (known == nullptr && entry.type.compare_exchange_strong(known, &type, std::memory_order_relaxed)) known = &type;
    if (known != &type) continue;
    int name = entry.name.load(std::memory_order_relaxed);
    if (name < 0) {
      name = Tracer::name(readableName(type));
      entry.name.store(name, std::memory_order_relaxed);
    }
    return static_cast<TraceName>(name);
  }
  return Tracer::name(readableName(type));
}

}  // namespace

void NodeSpan::beginSource(const TavrelGPUImageOutput& source) {
  beginNode(typeid(source), dynamic_cast<const void*>(&source));
}

void NodeSpan::beginConsumer(const TavrelGPUImageInput& consumer) {
  const void* const node = dynamic_cast<const void*>(&consumer);
  if (innermostNode && innermostNode->node_ == node) return;
  mustPassOn_ = dynamic_cast<const TavrelGPUImageOutput*>(&consumer) != nullptr;
  beginNode(typeid(consumer), node);
}

void NodeSpan::beginNode(const std::type_info& type, const void* node) {
  if (innermostNode && innermostNode->isTimingGPU_) GPUTimer::shared().end();
  node_ = node;
  outer_ = innermostNode;
  innermostNode = this;
  name_ = nameOf(type);
  begin(name_);
}

void NodeSpan::endNode() {
  innermostNode = outer_;
  if (mustPassOn_ && !hasPassedOn_) discard();
  if (isTimingGPU_) GPUTimer::shared().end();
}

void NodeSpan::noteDrawing() {
  NodeSpan* const node = innermostNode;
  if (!node || node->isTimingGPU_ || !TavrelGPUImageContext::sharedContextQueue()->isCurrent()) return;
  node->isTimingGPU_ = true;
  GPUTimer::shared().begin(node->name_);
}

void NodeSpan::notePassedOn() {
  if (innermostNode) innermostNode->hasPassedOn_ = true;
}

}  // namespace tavrel
