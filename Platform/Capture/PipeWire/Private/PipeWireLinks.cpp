#include "Platform/Capture/PipeWire/Private/PipeWireLinks.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace tavrel {

const pw_registry_events PipeWireLinks::kEvents = [] {
  pw_registry_events events{};
  events.version = PW_VERSION_REGISTRY_EVENTS;
  events.global = [](void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                     const spa_dict* properties) {
    if (!properties || std::string_view(type) != PW_TYPE_INTERFACE_Link) return;
    const char* const node = spa_dict_lookup(properties, PW_KEY_LINK_OUTPUT_NODE);
    if (!node) return;
    auto* self = static_cast<PipeWireLinks*>(data);
    self->nodes_[id] = static_cast<std::uint32_t>(std::strtoul(node, nullptr, 10));
    self->recount();
  };
  events.global_remove = [](void* data, std::uint32_t id) {
    auto* self = static_cast<PipeWireLinks*>(data);
    if (self->nodes_.erase(id) > 0) self->recount();
  };
  return events;
}();

void PipeWireLinks::start(pw_core* core, pw_stream* stream) {
  stream_ = stream;
  registry_ = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
  if (registry_) pw_registry_add_listener(registry_, &listener_, &kEvents, this);
}

void PipeWireLinks::stop() {
  if (!registry_) return;
  spa_hook_remove(&listener_);
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(std::exchange(registry_, nullptr)));
  nodes_.clear();
  count_ = 0;
}

void PipeWireLinks::recount() {
  const std::uint32_t own = pw_stream_get_node_id(stream_);
  count_ = static_cast<int>(std::ranges::count_if(nodes_, [own](const auto& link) { return link.second == own; }));
}

}  // namespace tavrel
