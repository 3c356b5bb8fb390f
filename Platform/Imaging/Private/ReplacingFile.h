#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "Platform/Foundation/Error.h"

namespace tavrel {

/// A new file that is to replace another, removed again unless it is kept. It has no name until then where the file
/// system can do so, and nothing remains of it if the process is killed; elsewhere it lies beside the other. After
/// false, errno has the reason.
class ReplacingFile {
 public:
  explicit ReplacingFile(const std::filesystem::path& finalPath);
  ReplacingFile(const ReplacingFile&) = delete;
  ReplacingFile& operator=(const ReplacingFile&) = delete;
  ~ReplacingFile();

  bool write(std::span<const std::uint8_t> bytes) const;
  /// False when the bytes did not reach the disk under the final name.
  bool keep();
  /// Of errno: "cannot write PATH: REASON".
  tl::unexpected<Error> systemFailure() const;

 private:
  bool giveName();

  const std::filesystem::path finalPath_;
  std::string path_;  // empty without a name
  int descriptor_ = -1;
  bool isKept_ = false;
};

}  // namespace tavrel
