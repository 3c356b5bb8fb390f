#include "Platform/Foundation/NotificationCenter.h"

#include <utility>

namespace tavrel {

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: observers may unregister while the process's statics are being destroyed.
  static auto* center = new NotificationCenter;
  return *center;
}

NotificationCenter::ObserverToken NotificationCenter::addObserver(std::string name, Callback callback,
                                                                  const void* object) {
  return observers_.add({std::move(name), object}, std::move(callback));
}

void NotificationCenter::removeObserver(ObserverToken token) {
  observers_.remove(token);
}

void NotificationCenter::post(std::string_view name, const void* object) {
  const auto isMeant = [&](const Interest& interest) {
    return interest.name == name && (!interest.object || interest.object == object);
  };
  observers_.notify(isMeant, name, object);
}

}  // namespace tavrel
