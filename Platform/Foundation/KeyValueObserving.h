#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Base of objects whose properties can be observed by name. Any thread; the properties themselves are not locked.
class TAVREL_API KeyValueObserving {
 public:
  using Callback = std::function<void(std::string_view key)>;
  /// Identifies a registration; never 0.
  using ObserverToken = std::uint64_t;

  /// Calls `callback` after each change of the property `key`, on the thread that sets it, even if the value stays the
  /// same.
  ObserverToken addObserver(std::string key, Callback callback);
  /// Ends a registration. A callback in progress on another thread may still finish after the return.
  void removeObserver(ObserverToken token);

 protected:
  KeyValueObserving();
  /// Copies have no observers.
  KeyValueObserving(const KeyValueObserving& other);
  KeyValueObserving& operator=(const KeyValueObserving&) = delete;
  ~KeyValueObserving();

  /// Stores the value, then calls the property's observers in the order of registration. Observers may add and remove
  /// registrations; a removed observer is no longer called, even for this change.
  template <typename Property, typename Value>
  void changeValue(Property& property, Value&& value, std::string_view key) {
    property = std::forward<Value>(value);
    didChangeValueForKey(key);
  }
  void didChangeValueForKey(std::string_view key);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
