#include <cstddef>
#include <cstdint>
#include <string>

#include "TavrelBase/Log/Private/LogFileName.h"

/// A name that is taken for a log file's is the one that its parts make.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string name(reinterpret_cast<const char*>(bytes), size);
  const auto parsed = tavrel::LogFileName::parse(name);
  if (!parsed) return 0;
  std::string made = tavrel::LogFileName::make(parsed->application, parsed->minute);
  if (parsed->number > 1) made = tavrel::LogFileName::numbered(made, parsed->number);
  if (made != name) __builtin_trap();
  return 0;
}
