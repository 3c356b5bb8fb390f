#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "Diagnostics.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// What a command says about the movie that it has written.
struct WrittenMovie {
  std::filesystem::path file;
  Size askedSize;
  Size size;  ///< of the stored picture
  double seconds = 0;
  std::uint64_t frames = 0;
  std::optional<std::uint64_t> framesLost = {};
  std::optional<std::string> sound = {};  ///< what was done with it

  /// For people, or as JSON with what was measured. The exit status.
  int report(bool asJson, Diagnostics& diagnostics) const;
};

}  // namespace tavrel::tool
