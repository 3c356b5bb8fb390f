#include "Platform/Foundation/KeyValueObserving.h"

#include <vector>

namespace tavrel {

KeyValueObserving::ObserverToken KeyValueObserving::addObserver(std::string key, Callback callback) {
  const std::lock_guard lock(mutex_);
  observers_.emplace(++lastToken_, Observer{std::move(key), std::make_shared<Callback>(std::move(callback))});
  return lastToken_;
}

void KeyValueObserving::removeObserver(ObserverToken token) {
  std::shared_ptr<Callback> released;  // declared before the lock: destroyed after it is released
  const std::lock_guard lock(mutex_);
  const auto observer = observers_.find(token);
  if (observer == observers_.end()) return;
  released = std::move(observer->second.callback);
  observers_.erase(observer);
}

void KeyValueObserving::didChangeValueForKey(std::string_view key) {
  std::vector<ObserverToken> tokens;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [token, observer] : observers_) {
      if (observer.key == key) tokens.push_back(token);
    }
  }
  for (const ObserverToken token : tokens) {
    std::shared_ptr<Callback> callback;
    {
      const std::lock_guard lock(mutex_);
      if (const auto observer = observers_.find(token); observer != observers_.end()) {
        callback = observer->second.callback;
      }
    }
    if (callback) (*callback)(key);
  }
}

}  // namespace tavrel
