#pragma once

extern "C" {
#include <libavformat/avio.h>
}

#include <cstdint>
#include <filesystem>
#include <memory>

#include "Platform/Foundation/Error.h"

namespace tavrel {

/// The bytes of a movie file: a file descriptor behind libavformat's input/output interface. Remembers the system's
/// reason when a write fails, and how far the file is complete. One thread at a time.
class MovieFileOutput {
 public:
  /// Opens or creates the file; what it holds stays until `begin`.
  static Expected<std::unique_ptr<MovieFileOutput>> open(const std::filesystem::path& path);

  MovieFileOutput(const MovieFileOutput&) = delete;
  MovieFileOutput& operator=(const MovieFileOutput&) = delete;
  /// Removes the file when it was created here and nothing was ever written to it.
  ~MovieFileOutput();

  /// Empties the file.
  Expected<void> begin();
  AVIOContext* context() { return context_; }
  /// Hands everything to the kernel and, when that succeeded, remembers the file as complete up to here.
  Expected<void> checkpoint();
  /// Cuts off what came after the last checkpoint, and closes; removes the file when nothing is left of it.
  void closeAtCheckpoint();
  void closeAndRemove();
  /// The reason of the first failed write.
  Expected<void> status() const;

 private:
  MovieFileOutput(std::filesystem::path path, int descriptor, bool isNew);
  static int write(void* opaque, std::uint8_t* bytes, int size);
  static std::int64_t seek(void* opaque, std::int64_t offset, int whence);
  void close();

  std::filesystem::path path_;
  int descriptor_;
  bool isNew_;
  bool hasBegun_ = false;
  int failure_ = 0;  // errno of the first failed write
  std::int64_t completeSize_ = 0;
  AVIOContext* context_ = nullptr;
};

}  // namespace tavrel
