#pragma once

#include <atomic>
#include <string>

#include "TavrelBase/Log/TavrelDDLogLevel.h"

namespace tavrel {

/// A class's own log level, registered by name during its lifetime. Make it a static member and guard calls with it:
/// `TAVREL_LOG_AT(logClass.level(), TavrelDDLogFlagDebug, logClass.name(), "…")`. Any thread.
class TAVREL_API TavrelDDLogClass {
 public:
  explicit TavrelDDLogClass(std::string name, unsigned level = TavrelDDLogLevelDebug);
  TavrelDDLogClass(const TavrelDDLogClass&) = delete;
  TavrelDDLogClass& operator=(const TavrelDDLogClass&) = delete;
  ~TavrelDDLogClass();

  const std::string& name() const { return name_; }
  unsigned level() const { return level_.load(std::memory_order_relaxed); }
  void setLevel(unsigned level) { level_.store(level, std::memory_order_relaxed); }

 private:
  std::string name_;
  std::atomic<unsigned> level_;
};

}  // namespace tavrel
