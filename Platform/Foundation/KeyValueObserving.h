#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Base of objects whose properties can be watched by name. Any thread; the properties themselves are not locked.
class TAVREL_API KeyValueObserving {
 public:
  using Callback = std::function<void(std::string_view key)>;
  /// Names one registration; 0 is never given out.
  using ObserverToken = std::uint64_t;

  /// Calls `callback` after each later set of the property called `key`, on the setting thread, also when the value is
  /// the same as before. The object then has the new value.
  ObserverToken addObserver(std::string key, Callback callback);
  /// Ends a registration. A callback that runs on another thread at this moment may still finish after the return.
  void removeObserver(ObserverToken token);

 protected:
  KeyValueObserving();
  /// Observers watch an object, not its copies.
  KeyValueObserving(const KeyValueObserving& other);
  KeyValueObserving& operator=(const KeyValueObserving&) = delete;
  ~KeyValueObserving();

  /// Stores a new value, then calls the property's observers in the order of registration. Observers may add and remove
  /// registrations; one removed by an earlier observer of the same change is not called.
  template <typename Property, typename Value>
  void changeValue(Property& property, Value&& value, std::string_view key) {
    property = std::forward<Value>(value);
    didChangeValueForKey(key);
  }
  void didChangeValueForKey(std::string_view key);

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
