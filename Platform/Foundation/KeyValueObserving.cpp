#include "Platform/Foundation/KeyValueObserving.h"

namespace tavrel {

KeyValueObserving::ObserverToken KeyValueObserving::addObserver(std::string key, Callback callback) {
  return observers_.add(std::move(key), std::move(callback));
}

void KeyValueObserving::removeObserver(ObserverToken token) {
  observers_.remove(token);
}

void KeyValueObserving::didChangeValueForKey(std::string_view key) {
  observers_.notify([key](const std::string& observed) { return observed == key; }, key);
}

}  // namespace tavrel
