#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Who may read a log file. Linux has no encrypted storage tied to the screen lock: the level is stored with the file
/// (extended attribute "user.protection"), and all levels but `none` make it readable by its owner only.
enum class LogFileProtection { none, completeUntilFirstUserAuthentication, completeUnlessOpen, complete };

/// A log file on disk. Attributes are cached until `reset`. One thread at a time.
///
/// The archived mark is the extended attribute "user.archived" or, on file systems without extended attributes, the
/// lack of the owner's write permission.
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
  /// All zero if the file does not exist.
  const FileAttributes& fileAttributes() const;
  /// The file's birth time; if the file system has none, the date in the name, else the modification date.
  TimePoint creationDate() const { return fileAttributes().creationDate; }
  TimePoint modificationDate() const { return fileAttributes().modificationDate; }
  std::uint64_t fileSize() const { return fileAttributes().size; }
  /// Seconds since creation by `LogClock`.
  double age() const;
  bool isArchived() const;
  /// False if the file is gone or cannot be marked.
  bool setIsArchived(bool isArchived);
  /// Nothing without the attribute.
  std::optional<LogFileProtection> protection() const;
  bool setProtection(LogFileProtection protection);
  /// Discards the cached attributes.
  void reset();

 private:
  std::filesystem::path filePath_;
  mutable std::optional<FileAttributes> attributes_;
  mutable std::optional<bool> isArchived_;
};

}  // namespace tavrel
