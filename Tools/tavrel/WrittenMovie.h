#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "Diagnostics.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// What a command reports about the movie it has written.
struct WrittenMovie {
  std::filesystem::path file;
  Size askedSize;
  Size size;  ///< of the encoded frames
  double seconds = 0;
  std::uint64_t frames = 0;
  std::optional<std::uint64_t> framesLost = {};
  std::optional<std::string> sound = {};  ///< what was done with it

  /// Prints the report as text, or as JSON with the measured statistics. Returns the exit status.
  int report(bool asJson, Diagnostics& diagnostics) const;
};

}  // namespace tavrel::tool
