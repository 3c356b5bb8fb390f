#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Hands named notifications to whoever asked for them. Any thread.
class TAVREL_API NotificationCenter {
 public:
  /// `object` is whatever the poster named as the subject, or nullptr.
  using Callback = std::function<void(std::string_view name, const void* object)>;
  /// Names one registration; 0 is never given out.
  using ObserverToken = std::uint64_t;

  /// The process's centre; it lives until the process ends.
  static NotificationCenter& defaultCenter();

  NotificationCenter();
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;
  ~NotificationCenter();

  /// Calls `callback` for every later post of `name`, on the posting thread. With `object`, only for posts about it.
  ObserverToken addObserver(std::string name, Callback callback, const void* object = nullptr);
  /// Ends a registration. A callback that runs on another thread at this moment may still finish after the return.
  void removeObserver(ObserverToken token);
  /// Calls every observer of `name` in the order of registration, before it returns. Observers may add and remove
  /// registrations; one removed by an earlier observer of the same post is not called.
  void post(std::string_view name, const void* object = nullptr);

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
