#include "Model/Settings.h"

#include <fmt/format.h>

#include <cerrno>
#include <cmath>
#include <fstream>
#include <system_error>

#include "Model/Folders.h"

namespace tavrel::studio {
namespace {

/// Takes the value under `key` if it has the right type.
template <typename T>
void read(const nlohmann::json& json, const char* key, T& value) {
  const auto found = json.find(key);
  if (found == json.end()) return;
  try {
    found->get_to(value);
  } catch (const nlohmann::json::exception&) {
    // The default stays.
  }
}

void readNumber(const nlohmann::json& json, const char* key, double least, double most, double& value) {
  double number = value;
  read(json, key, number);
  if (number >= least && number <= most) value = number;
}

void readSize(const nlohmann::json& json, const char* width, const char* height, Size least, Size& value) {
  constexpr double kLargest = 16384;
  Size size = value;
  readNumber(json, width, least.width, kLargest, size.width);
  readNumber(json, height, least.height, kLargest, size.height);
  value = {std::round(size.width), std::round(size.height)};
}

void readFolder(const nlohmann::json& json, const char* key, std::filesystem::path& value) {
  std::string text;
  read(json, key, text);
  const std::filesystem::path folder = text;
  if (folder.is_absolute()) value = folder;
}

Settings settingsOf(const nlohmann::json& json) {
  Settings settings;
  read(json, "camera", settings.camera);
  read(json, "microphone", settings.microphone);
  readSize(json, "width", "height", {2, 2}, settings.size);
  readNumber(json, "framesPerSecond", 1, 240, settings.framesPerSecond);
  read(json, "codec", settings.codec);
  read(json, "container", settings.container);
  readNumber(json, "quality", 0, 1, settings.quality);
  readFolder(json, "movieFolder", settings.movieFolder);
  readFolder(json, "stillFolder", settings.stillFolder);
  read(json, "mirrors", settings.mirrors);
  read(json, "cameraName", settings.cameraName);
  readNumber(json, "zoomOfPanels", 0.5, 4, settings.zoomOfPanels);
  read(json, "showsPanels", settings.showsPanels);
  readSize(json, "windowWidth", "windowHeight", {320, 240}, settings.windowSize);
  readNumber(json, "bytesPerSecond", 0, 1e9, settings.bytesPerSecond);
  read(json, "effects", settings.effects);
  return settings;
}

}  // namespace

std::filesystem::path Settings::movies() const { return movieFolder.empty() ? userFolder("VIDEOS") : movieFolder; }

std::filesystem::path Settings::stills() const { return stillFolder.empty() ? userFolder("PICTURES") : stillFolder; }

TavrelRecordingOptions Settings::recordingOptions() const {
  return {.settings = {{kVideoCodecKey, codec}, {kVideoQualityKey, quality}}};
}

Expected<Settings> Settings::load(const std::filesystem::path& file) {
  std::error_code ignored;
  if (!std::filesystem::exists(file, ignored)) return Settings();
  const auto bytes = readFile(file, std::size_t{1} << 20);
  if (!bytes) return tl::unexpected(bytes.error());
  const auto json = nlohmann::json::parse(bytes->begin(), bytes->end(), nullptr, false);
  if (!json.is_object()) return failure("studio", 1, fmt::format("{} is no settings file", shortName(file)));
  return settingsOf(json);
}

Expected<void> Settings::save(const std::filesystem::path& file) const {
  const nlohmann::json json = {{"camera", camera},
                               {"microphone", microphone},
                               {"width", size.width},
                               {"height", size.height},
                               {"framesPerSecond", framesPerSecond},
                               {"codec", codec},
                               {"container", container},
                               {"quality", quality},
                               {"movieFolder", movieFolder.string()},
                               {"stillFolder", stillFolder.string()},
                               {"mirrors", mirrors},
                               {"cameraName", cameraName},
                               {"zoomOfPanels", zoomOfPanels},
                               {"showsPanels", showsPanels},
                               {"windowWidth", windowSize.width},
                               {"windowHeight", windowSize.height},
                               {"bytesPerSecond", bytesPerSecond},
                               {"effects", effects}};
  std::error_code error;
  std::filesystem::create_directories(file.parent_path(), error);
  const std::filesystem::path fresh = file.string() + ".new";
  std::ofstream stream(fresh);
  // Names of files need not be UTF-8.
  stream << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  stream.close();
  if (stream) std::filesystem::rename(fresh, file, error);
  if (stream && !error) return {};
  return failure("posix", error ? error.value() : EIO, fmt::format("{} cannot be written", shortName(file)));
}

}  // namespace tavrel::studio
