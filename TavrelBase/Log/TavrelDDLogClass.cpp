#include "TavrelBase/Log/TavrelDDLogClass.h"

#include <algorithm>
#include <mutex>

#include "TavrelBase/Log/TavrelDDLog.h"

namespace tavrel {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<TavrelDDLogClass*> classes;

  TavrelDDLogClass* find(std::string_view name) const {
    const auto entry = std::ranges::find(classes, name, &TavrelDDLogClass::name);
    return entry == classes.end() ? nullptr : *entry;
  }
};

// Never destroyed: static objects of other libraries may still unregister.
Registry& registry() {
  static auto* shared = new Registry;
  return *shared;
}

}  // namespace

TavrelDDLogClass::TavrelDDLogClass(std::string name, unsigned level) : name_(std::move(name)), level_(level) {
  const std::lock_guard lock(registry().mutex);
  registry().classes.push_back(this);
}

TavrelDDLogClass::~TavrelDDLogClass() {
  const std::lock_guard lock(registry().mutex);
  std::erase(registry().classes, this);
}

std::vector<TavrelDDLogClass*> TavrelDDLog::registeredClasses() {
  const std::lock_guard lock(registry().mutex);
  return registry().classes;
}

std::vector<std::string> TavrelDDLog::registeredClassNames() {
  const std::lock_guard lock(registry().mutex);
  std::vector<std::string> names;
  for (const TavrelDDLogClass* logClass : registry().classes) names.push_back(logClass->name());
  return names;
}

bool TavrelDDLog::isRegisteredClass(std::string_view name) {
  const std::lock_guard lock(registry().mutex);
  return registry().find(name) != nullptr;
}

unsigned TavrelDDLog::levelForClass(const TavrelDDLogClass& logClass) { return logClass.level(); }

unsigned TavrelDDLog::levelForClassWithName(std::string_view name) {
  const std::lock_guard lock(registry().mutex);
  const TavrelDDLogClass* const logClass = registry().find(name);
  return logClass ? logClass->level() : 0;
}

void TavrelDDLog::setLevel(unsigned level, TavrelDDLogClass& forClass) { forClass.setLevel(level); }

void TavrelDDLog::setLevel(unsigned level, std::string_view forClassWithName) {
  const std::lock_guard lock(registry().mutex);
  if (TavrelDDLogClass* const logClass = registry().find(forClassWithName)) logClass->setLevel(level);
}

}  // namespace tavrel
