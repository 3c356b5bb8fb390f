#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "TavrelBase/Log/TavrelDDLogFileInfo.h"

namespace tavrel {

/// Decides where log files live, how they are called and which are deleted. Any thread.
class TAVREL_API TavrelDDLogFileManager {
 public:
  virtual ~TavrelDDLogFileManager();

  /// How many files are kept; 0 for any number.
  virtual unsigned maximumNumberOfLogFiles() const = 0;
  virtual void setMaximumNumberOfLogFiles(unsigned count) = 0;
  /// How many bytes all files may take; 0 for any number.
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

  /// Creates an empty file and returns its path; fails with the system's reason ("posix", errno).
  virtual Expected<std::filesystem::path> createNewLogFile() = 0;
  virtual void deleteOldLogFiles() = 0;

  /// A file was found too large or too old at start and will not be written again. On the logger's queue.
  virtual void didArchiveLogFile(const std::filesystem::path&) {}
  /// A file that was being written is complete. On the logger's queue.
  virtual void didRollAndArchiveLogFile(const std::filesystem::path&) {}
};

}  // namespace tavrel
