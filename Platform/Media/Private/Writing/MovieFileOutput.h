#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/FFmpegFunctions.h"

namespace tavrel {

/// The bytes of a movie file: a file descriptor behind libavformat's input/output interface. Remembers the system's
/// reason when a write fails, and how far the file is complete. One thread at a time.
///
/// What is written has a hidden name beside the file's own, `.NAME.part`, until `publish`; whatever goes wrong before
/// that, a file that had the name is still there. Two outputs never write one name: the file that is being written is
/// locked (flock), before and after it has its name.
class MovieFileOutput {
 public:
  /// Fails ("posix", `MediaErrorCode::unwritableFile`, `fileInUse`) where no file can be written.
  static Expected<std::unique_ptr<MovieFileOutput>> open(const std::filesystem::path& path);

  MovieFileOutput(const MovieFileOutput&) = delete;
  MovieFileOutput& operator=(const MovieFileOutput&) = delete;
  /// Removes what was not published.
  ~MovieFileOutput();

  /// The hidden name, or the file's own once it has it.
  const std::filesystem::path& presentPath() const { return isPublished_ ? path_ : part_; }
  Expected<void> begin();
  AVIOContext* context() { return context_; }
  /// Hands everything to the kernel and, when that succeeded, remembers the file as complete up to here.
  Expected<void> checkpoint();
  /// Returns when everything up to the last checkpoint is on the disk.
  Expected<void> sync();
  /// Where the next byte goes.
  std::int64_t position() const { return avio_tell(context_); }
  /// Leaves a hole up to `offset`.
  void skipTo(std::int64_t offset) { avio_seek(context_, offset, SEEK_SET); }
  /// What is in the kernel's hands.
  Expected<std::vector<std::uint8_t>> bytesAt(std::int64_t offset, std::size_t size) const;
  /// The box that begins at `offset` and is in the kernel's hands.
  Expected<std::vector<std::uint8_t>> boxAt(std::int64_t offset) const;
  /// The box that is about to be written is called `free` at first, so that nobody looks into a part of it.
  Expected<void> hideNextBox();
  /// Writes beside the stream of bytes, past its end too.
  Expected<void> writeAt(std::int64_t offset, std::span<const std::uint8_t> bytes);
  /// The file is complete up to here.
  void completeAt(std::int64_t size) { completeSize_ = size; }
  /// Brings the file to the disk, and gives it its name if it has not got it yet.
  Expected<void> publish();
  /// Cuts off what came after the last checkpoint, and closes; removes a file that has not its name yet.
  void closeAtCheckpoint();
  void closeAndRemove();
  /// The reason of the first failed write.
  Expected<void> status() const;

 private:
  MovieFileOutput(std::filesystem::path path, std::filesystem::path part, int descriptor);
  static int write(void* opaque, std::uint8_t* bytes, int size);
  static std::int64_t seek(void* opaque, std::int64_t offset, int whence);
  void close();

  const std::filesystem::path path_;
  const std::filesystem::path part_;
  int descriptor_;
  bool isPublished_ = false;
  int failure_ = 0;  // errno of the first failed write
  std::int64_t completeSize_ = 0;
  bool isNextBoxHidden_ = false;
  AVIOContext* context_ = nullptr;
};

}  // namespace tavrel
