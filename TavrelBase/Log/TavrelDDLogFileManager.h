#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "TavrelBase/Log/TavrelDDLogFileInfo.h"

namespace tavrel {

/// Determines the directory and names of log files, and deletes old ones. Any thread.
class TAVREL_API TavrelDDLogFileManager {
 public:
  virtual ~TavrelDDLogFileManager();

  /// Maximum number of files; 0 for no limit.
  virtual unsigned maximumNumberOfLogFiles() const = 0;
  virtual void setMaximumNumberOfLogFiles(unsigned count) = 0;
  /// Maximum size of all files in bytes; 0 for no limit.
  virtual std::uint64_t logFilesDiskQuota() const = 0;
  virtual void setLogFilesDiskQuota(std::uint64_t bytes) = 0;
  virtual std::filesystem::path logsDirectory() = 0;

  virtual std::vector<std::filesystem::path> unsortedLogFilePaths() = 0;
  virtual std::vector<std::string> unsortedLogFileNames() = 0;
  virtual std::vector<TavrelDDLogFileInfo> unsortedLogFileInfos() = 0;
  /// Newest first.
  virtual std::vector<std::filesystem::path> sortedLogFilePaths() = 0;
  virtual std::vector<std::string> sortedLogFileNames() = 0;
  virtual std::vector<TavrelDDLogFileInfo> sortedLogFileInfos() = 0;

  /// Creates an empty file and returns its path; fails with the system's error ("posix").
  virtual Expected<std::filesystem::path> createNewLogFile() = 0;
  virtual void deleteOldLogFiles() = 0;

  /// A file was too large or too old to be continued at start. On the logger's queue.
  virtual void didArchiveLogFile(const std::filesystem::path&) {}
  /// The current file was archived. On the logger's queue.
  virtual void didRollAndArchiveLogFile(const std::filesystem::path&) {}
};

}  // namespace tavrel
