#pragma once

#include <ctime>
#include <filesystem>
#include <string>

namespace tavrel::studio {

/// `XDG_CONFIG_HOME`/tavrel-studio, by default below ~/.config.
std::filesystem::path settingsFolder();
/// The person's folder for "VIDEOS" or "PICTURES" as the desktop names it (user-dirs.dirs), by default ~/Videos and
/// ~/Pictures.
std::filesystem::path userFolder(const std::string& name);
/// A name in `folder` that is not taken, nor given before: the local date and time, such as "2026-11-22
/// 14-30-05.mov". Main thread.
std::filesystem::path newFile(const std::filesystem::path& folder, const std::string& extension, std::time_t time);
/// `path` with the home folder as "~".
std::string shortName(const std::filesystem::path& path);
/// Opens a file or folder with the desktop's program for it; false if there is no way to.
bool openWithDesktop(const std::filesystem::path& path);

}  // namespace tavrel::studio
