#include "Platform/Foundation/KeyValueObserving.h"

#include "Platform/Foundation/ObserverList.h"

namespace tavrel {

struct KeyValueObserving::Implementation {
  ObserverList<std::string, std::string_view> observers;
};

KeyValueObserving::KeyValueObserving() : implementation_(std::make_unique<Implementation>()) {}

KeyValueObserving::KeyValueObserving(const KeyValueObserving&) : KeyValueObserving() {}

KeyValueObserving::~KeyValueObserving() = default;

KeyValueObserving::ObserverToken KeyValueObserving::addObserver(std::string key, Callback callback) {
  return implementation_->observers.add(std::move(key), std::move(callback));
}

void KeyValueObserving::removeObserver(ObserverToken token) { implementation_->observers.remove(token); }

void KeyValueObserving::didChangeValueForKey(std::string_view key) {
  implementation_->observers.notify([key](const std::string& observed) { return observed == key; }, key);
}

}  // namespace tavrel
