#pragma once

#include <pipewire/pipewire.h>

#include <mutex>
#include <string>

namespace tavrel {

/// The name of the system's default microphone, as the daemon's metadata tell it. Shared between the backend, which
/// watches, and its drivers.
class PipeWireDefaults {
 public:
  /// Takes note of the metadata object `id` if it is the one that names the defaults. On the loop's thread, as
  /// `unwatch`.
  void watch(pw_registry* registry, std::uint32_t id, const spa_dict& properties);
  void unwatch();
  /// Any thread.
  bool isSource(const std::string& name) const;

 private:
  static int changed(void* data, std::uint32_t, const char* key, const char*, const char* value);

  pw_proxy* metadata_ = nullptr;
  spa_hook listener_{};
  mutable std::mutex mutex_;
  std::string source_;
};

}  // namespace tavrel
