#include "Platform/Foundation/NotificationCenter.h"

#include <utility>

#include "Platform/Foundation/ObserverList.h"

namespace tavrel {
namespace {

struct Interest {
  std::string name;
  const void* object;
};

}  // namespace

struct NotificationCenter::Implementation {
  ObserverList<Interest, std::string_view, const void*> observers;
};

NotificationCenter::NotificationCenter() : implementation_(std::make_unique<Implementation>()) {}

NotificationCenter::~NotificationCenter() = default;

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: observers may unregister while the process's statics are being destroyed.
  static auto* center = new NotificationCenter;
  return *center;
}

NotificationCenter::ObserverToken NotificationCenter::addObserver(std::string name, Callback callback,
                                                                  const void* object) {
  return implementation_->observers.add({std::move(name), object}, std::move(callback));
}

void NotificationCenter::removeObserver(ObserverToken token) { implementation_->observers.remove(token); }

void NotificationCenter::post(std::string_view name, const void* object) {
  const auto isMeant = [&](const Interest& interest) {
    return interest.name == name && (!interest.object || interest.object == object);
  };
  implementation_->observers.notify(isMeant, name, object);
}

}  // namespace tavrel
