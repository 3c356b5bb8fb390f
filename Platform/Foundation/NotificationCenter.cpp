#include "Platform/Foundation/NotificationCenter.h"

#include <utility>
#include <vector>

namespace tavrel {

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: observers may unregister while the process's statics are being destroyed.
  static auto* center = new NotificationCenter;
  return *center;
}

NotificationCenter::ObserverToken NotificationCenter::addObserver(std::string name, Callback callback,
                                                                  const void* object) {
  const std::lock_guard lock(mutex_);
  observers_.emplace(++lastToken_, Observer{std::move(name), object, std::make_shared<Callback>(std::move(callback))});
  return lastToken_;
}

void NotificationCenter::removeObserver(ObserverToken token) {
  std::shared_ptr<Callback> released;  // declared before the lock: destroyed after it is released
  const std::lock_guard lock(mutex_);
  const auto observer = observers_.find(token);
  if (observer == observers_.end()) return;
  released = std::move(observer->second.callback);
  observers_.erase(observer);
}

void NotificationCenter::post(std::string_view name, const void* object) {
  std::vector<ObserverToken> tokens;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [token, observer] : observers_) {
      if (observer.name == name && (!observer.object || observer.object == object)) tokens.push_back(token);
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
    if (callback) (*callback)(name, object);
  }
}

}  // namespace tavrel
