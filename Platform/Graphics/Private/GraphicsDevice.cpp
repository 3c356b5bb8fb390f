#include "Platform/Graphics/Private/GraphicsDevice.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>

#include "Platform/Graphics/Private/EGLFunctions.h"
#include "Platform/Graphics/Private/NativeContext.h"

namespace tavrel {
namespace {

#ifndef EGL_RENDERER_EXT
constexpr EGLint EGL_RENDERER_EXT = 0x335F;
#endif

std::string deviceString(EGLDeviceEXT device, const char* extension, EGLint name) {
  const auto query = EGLFunctions::shared().queryDeviceString;
  if (!query || !containsWord(query(device, EGL_EXTENSIONS), extension)) return {};
  const char* const value = query(device, name);
  return value != nullptr ? value : "";
}

/// The name of the driver behind a node, as the kernel links it.
std::string kernelDriver(const std::string& node) {
  struct stat status {};
  if (node.empty() || stat(node.c_str(), &status) != 0) return {};
  std::error_code error;
  const auto link = fmt::format("/sys/dev/char/{}:{}/device/driver", major(status.st_rdev), minor(status.st_rdev));
  return std::filesystem::read_symlink(link, error).filename().string();
}

GraphicsDevice describe(EGLDeviceEXT handle) {
  GraphicsDevice device;
  device.handle = handle;
  device.node = deviceString(handle, "EGL_EXT_device_drm_render_node", EGL_DRM_RENDER_NODE_FILE_EXT);
  if (device.node.empty()) device.node = deviceString(handle, "EGL_EXT_device_drm", EGL_DRM_DEVICE_FILE_EXT);
  const auto query = EGLFunctions::shared().queryDeviceString;
  device.isSoftware = query && containsWord(query(handle, EGL_EXTENSIONS), "EGL_MESA_device_software");
  device.name = deviceString(handle, "EGL_EXT_device_query_name", EGL_RENDERER_EXT);
  if (device.name.empty()) device.name = device.isSoftware ? "software" : kernelDriver(device.node);
  return device;
}

std::string inLowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return lower;
}

}  // namespace

std::vector<GraphicsDevice> GraphicsDevice::all() {
  const auto queryDevices = EGLFunctions::shared().queryDevices;
  std::array<EGLDeviceEXT, 16> handles{};
  EGLint count = 0;
  if (!queryDevices || queryDevices(static_cast<EGLint>(handles.size()), handles.data(), &count) == EGL_FALSE)
    return {};
  std::vector<GraphicsDevice> devices;
  std::transform(handles.begin(), handles.begin() + count, std::back_inserter(devices), describe);
  return devices;
}

GraphicsDevice GraphicsDevice::ofDisplay(EGLDisplay display) {
  const auto query = EGLFunctions::shared().queryDisplayAttribute;
  EGLAttrib attribute = 0;
  if (!query || query(display, EGL_DEVICE_EXT, &attribute) == EGL_FALSE || attribute == 0) return {};
  return describe(reinterpret_cast<EGLDeviceEXT>(attribute));  // NOLINT(performance-no-int-to-ptr): EGL hands them so
}

bool GraphicsDevice::isMeantBy(std::string_view choice) const {
  if (choice.empty()) return false;
  const bool isNode = !node.empty() && (choice == node || choice == std::filesystem::path(node).filename().string());
  return isNode || inLowerCase(name).find(inLowerCase(choice)) != std::string::npos;
}

std::string GraphicsDevice::description() const {
  if (node.empty()) return name.empty() ? "unnamed" : name;
  return name.empty() ? node : fmt::format("{} ({})", node, name);
}

EGLDisplay GraphicsDevice::open() const {
  const auto getPlatformDisplay = EGLFunctions::shared().getPlatformDisplay;
  if (!getPlatformDisplay) return EGL_NO_DISPLAY;
  EGLDisplay display = getPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, handle, nullptr);
  return display != EGL_NO_DISPLAY && eglInitialize(display, nullptr, nullptr) == EGL_TRUE ? display : EGL_NO_DISPLAY;
}

}  // namespace tavrel
