#pragma once

#include <memory>
#include <optional>

#include "Platform/Foundation/Pimpl.h"
#include "TavrelBase/Log/TavrelDDLogFileManager.h"

namespace tavrel {

TAVREL_API extern const unsigned kTavrelDDDefaultLogMaxNumLogFiles;       ///< 10
TAVREL_API extern const std::uint64_t kTavrelDDDefaultLogFilesDiskQuota;  ///< 20 MiB

/// Keeps log files in one directory, named after the application and the minute of creation (UTC): "tavrel 2026-03-01
/// 12-00.log", then "tavrel 2026-03-01 12-00 2.log". Other files in the directory are ignored.
///
/// Create with `std::make_shared`. Reducing the count or the quota deletes files soon after, on another thread. Errors
/// on deletion are ignored.
class TAVREL_API TavrelDDLogFileManagerDefault : public TavrelDDLogFileManager,
                                                 public std::enable_shared_from_this<TavrelDDLogFileManagerDefault> {
 public:
  /// Defaults: `defaultLogsDirectory()` and `completeUntilFirstUserAuthentication`.
  explicit TavrelDDLogFileManagerDefault(std::optional<std::filesystem::path> logsDirectory = std::nullopt,
                                         std::optional<LogFileProtection> defaultFileProtectionLevel = std::nullopt);
  ~TavrelDDLogFileManagerDefault() override;

  unsigned maximumNumberOfLogFiles() const override;
  void setMaximumNumberOfLogFiles(unsigned count) override;
  std::uint64_t logFilesDiskQuota() const override;
  void setLogFilesDiskQuota(std::uint64_t bytes) override;
  std::optional<LogFileProtection> defaultFileProtectionLevel() const;

  /// Creates the directory if needed. A failure is reported on the console, once until it succeeds again.
  std::filesystem::path logsDirectory() override;
  /// "APPLICATION/Tavrel/Logs" in $XDG_STATE_HOME (default ~/.local/state), or in the temporary directory without a
  /// home directory.
  std::filesystem::path defaultLogsDirectory() const;

  std::vector<std::filesystem::path> unsortedLogFilePaths() override;
  std::vector<std::string> unsortedLogFileNames() override;
  std::vector<TavrelDDLogFileInfo> unsortedLogFileInfos() override;
  std::vector<std::filesystem::path> sortedLogFilePaths() override;
  std::vector<std::string> sortedLogFileNames() override;
  std::vector<TavrelDDLogFileInfo> sortedLogFileInfos() override;

  /// The name of a file created now.
  std::string newLogFileName() const;
  bool isLogFile(std::string_view fileName) const;
  Expected<std::filesystem::path> createNewLogFile() override;
  /// Keeps the newest files within the count and the quota, and always the newest one unless it is archived.
  void deleteOldLogFiles() override;
  /// The process's name.
  std::string applicationName() const;

 private:
  void deleteOldLogFilesSoon();
  void deleteOldLogFilesExcept(const std::filesystem::path& kept);

  struct Implementation;

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
