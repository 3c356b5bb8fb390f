#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "Diagnostics.h"
#include "Platform/Capture/CaptureDelivery.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// What a command reports about the movie it has written.
struct WrittenMovie {
  std::filesystem::path file;
  Size askedSize;
  Size size;  ///< of the encoded frames
  double seconds = 0;
  std::uint64_t frames = 0;
  std::optional<std::uint64_t> framesLost = {};  ///< of a recording
  std::optional<std::uint64_t> framesRead = {};  ///< from a movie, all of which have to be written
  std::optional<std::string> sound = {};         ///< what was done with it
  std::optional<CaptureDelivery> camera = {};    ///< what it was recorded from

  /// Prints the report as text, or as JSON with the measured statistics. Returns the exit status, which
  /// is a failure when frames that were read are missing.
  int report(bool asJson, Diagnostics& diagnostics) const;

 private:
  int exitStatus() const;
};

}  // namespace tavrel::tool
