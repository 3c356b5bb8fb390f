#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Delivers named notifications to their observers. Any thread.
class TAVREL_API NotificationCenter {
 public:
  /// `object` is the subject given by the poster, or nullptr.
  using Callback = std::function<void(std::string_view name, const void* object)>;
  /// Identifies a registration; never 0.
  using ObserverToken = std::uint64_t;

  /// The process's notification centre; never destroyed.
  static NotificationCenter& defaultCenter();

  NotificationCenter();
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;
  ~NotificationCenter();

  /// Calls `callback` for every post of `name`, on the posting thread; with `object`, only for posts about it.
  ObserverToken addObserver(std::string name, Callback callback, const void* object = nullptr);
  /// Ends a registration. A callback in progress on another thread may still finish after the return.
  void removeObserver(ObserverToken token);
  /// Calls every observer of `name` synchronously, in the order of registration. Observers may add and remove
  /// registrations; a removed observer is no longer called, even for this post.
  void post(std::string_view name, const void* object = nullptr);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
