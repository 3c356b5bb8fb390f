#include "Platform/Capture/PipeWire/Private/PipeWireDefaults.h"

#include <pipewire/extensions/metadata.h>

#include <string_view>
#include <utility>

#include "Platform/Capture/PipeWire/Private/PipeWireNodes.h"

namespace tavrel {

void PipeWireDefaults::watch(pw_registry* registry, std::uint32_t id, const spa_dict& properties) {
  static constexpr pw_metadata_events kEvents = {PW_VERSION_METADATA_EVENTS, changed};
  const char* name = spa_dict_lookup(&properties, PW_KEY_METADATA_NAME);
  if (metadata_ || !name || std::string_view(name) != "default") return;
  metadata_ =
      static_cast<pw_proxy*>(pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
  if (!metadata_) return;
  pw_metadata_add_listener(reinterpret_cast<pw_metadata*>(metadata_), &listener_, &kEvents, this);
}

void PipeWireDefaults::unwatch() {
  if (!metadata_) return;
  spa_hook_remove(&listener_);
  pw_proxy_destroy(std::exchange(metadata_, nullptr));
}

bool PipeWireDefaults::isSource(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  return source_ == name;
}

int PipeWireDefaults::changed(void* data, std::uint32_t, const char* key, const char*, const char* value) {
  auto* self = static_cast<PipeWireDefaults*>(data);
  if (!key || std::string_view(key) != "default.audio.source") return 0;
  const std::lock_guard lock(self->mutex_);
  self->source_ = nameInPipeWireMetadata(value);
  return 0;
}

}  // namespace tavrel
