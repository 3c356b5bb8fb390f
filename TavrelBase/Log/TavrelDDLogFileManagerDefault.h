#pragma once

#include <memory>
#include <optional>

#include "TavrelBase/Log/TavrelDDLogFileManager.h"

namespace tavrel {

TAVREL_API extern const unsigned kTavrelDDDefaultLogMaxNumLogFiles;       ///< 10
TAVREL_API extern const std::uint64_t kTavrelDDDefaultLogFilesDiskQuota;  ///< 20 MiB

/// Log files in one directory, named after the application and the minute of creation (UTC): "tavrel 2026-03-01
/// 12-00.log", and "tavrel 2026-03-01 12-00 2.log" for a second one of that minute. Other files in the directory are
/// left alone.
///
/// Create it with `std::make_shared`. A change of the count or the quota deletes what is too much, soon and on another
/// thread. Removal errors are ignored.
class TAVREL_API TavrelDDLogFileManagerDefault : public TavrelDDLogFileManager,
                                                 public std::enable_shared_from_this<TavrelDDLogFileManagerDefault> {
 public:
  /// No directory means `defaultLogsDirectory()`. No protection means what applications get that run in the background,
  /// as every application on Linux may: `completeUntilFirstUserAuthentication`.
  explicit TavrelDDLogFileManagerDefault(std::optional<std::filesystem::path> logsDirectory = std::nullopt,
                                         std::optional<LogFileProtection> defaultFileProtectionLevel = std::nullopt);
  ~TavrelDDLogFileManagerDefault() override;

  unsigned maximumNumberOfLogFiles() const override;
  void setMaximumNumberOfLogFiles(unsigned count) override;
  std::uint64_t logFilesDiskQuota() const override;
  void setLogFilesDiskQuota(std::uint64_t bytes) override;
  std::optional<LogFileProtection> defaultFileProtectionLevel() const;

  /// Creates the directory when it is not there; a failure goes to the console once, until it succeeds again.
  std::filesystem::path logsDirectory() override;
  /// "APPLICATION/Tavrel/Logs" in $XDG_STATE_HOME, by default ~/.local/state; without a home directory in the directory
  /// for temporary files.
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
  /// Keeps the newest files within the count and the quota. The newest stays in any case unless it is archived.
  void deleteOldLogFiles() override;
  /// The process's name.
  std::string applicationName() const;

 private:
  void deleteOldLogFilesSoon();
  void deleteOldLogFilesExcept(const std::filesystem::path& kept);

  struct Implementation;

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
