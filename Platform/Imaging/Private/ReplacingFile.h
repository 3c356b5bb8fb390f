#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "Platform/Foundation/Error.h"

namespace tavrel {

/// A new file beside the one that it is to replace, removed again unless it is kept. After false, errno has the reason.
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
  const std::filesystem::path finalPath_;
  std::string path_;
  int descriptor_ = -1;
  bool isKept_ = false;
};

}  // namespace tavrel
