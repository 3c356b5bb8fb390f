#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Who may read a log file. Linux has no classes of encrypted storage that follow the screen lock: the class is kept
/// with the file (extended attribute "user.protection") and all except `none` make it readable by its owner only.
enum class LogFileProtection { none, completeUntilFirstUserAuthentication, completeUnlessOpen, complete };

/// One log file on disk. What is read from the file system is kept until `reset`. One thread at a time.
///
/// The archived mark is the extended attribute "user.archived". Where the file system has no extended attributes, a
/// file counts as archived when its owner has no permission to write it.
class TAVREL_API TavrelDDLogFileInfo {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  struct FileAttributes {
    std::uint64_t size = 0;
    TimePoint creationDate;
    TimePoint modificationDate;
    unsigned permissions = 0;  ///< the low twelve bits of the mode
  };

  explicit TavrelDDLogFileInfo(std::filesystem::path filePath) : filePath_(std::move(filePath)) {}

  const std::filesystem::path& filePath() const { return filePath_; }
  std::string fileName() const { return filePath_.filename().string(); }
  /// All zero for a file that is not there.
  const FileAttributes& fileAttributes() const;
  /// The file system's time of birth; where it keeps none, the date in the name; else the time of the last change.
  TimePoint creationDate() const { return fileAttributes().creationDate; }
  TimePoint modificationDate() const { return fileAttributes().modificationDate; }
  std::uint64_t fileSize() const { return fileAttributes().size; }
  /// Seconds since creation by `LogClock`.
  double age() const;
  bool isArchived() const;
  /// False when the file system takes no mark of either kind, or the file is gone.
  bool setIsArchived(bool isArchived);
  /// None for a file without the attribute.
  std::optional<LogFileProtection> protection() const;
  bool setProtection(LogFileProtection protection);
  /// Forgets what was read.
  void reset();

 private:
  std::filesystem::path filePath_;
  mutable std::optional<FileAttributes> attributes_;
  mutable std::optional<bool> isArchived_;
};

}  // namespace tavrel
