#pragma once

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <string>
#include <string_view>
#include <vector>

namespace tavrel {

/// A GPU, or the software that stands in for one, as EGL lists them (EGL_EXT_device_enumeration). Any thread.
struct GraphicsDevice {
  EGLDeviceEXT handle = nullptr;
  std::string node;  ///< of the kernel, such as "/dev/dri/renderD128"; empty where EGL names none
  std::string name;  ///< the renderer's where EGL knows it (EGL_EXT_device_query_name), else the kernel driver's
  bool isSoftware = false;

  static std::vector<GraphicsDevice> all();
  /// What it was made from; empty for a display that stands on no device of the list.
  static GraphicsDevice ofDisplay(EGLDisplay display);

  /// Whether `choice` is the node, with or without its folder, or a part of the name in whatever case.
  bool isMeantBy(std::string_view choice) const;
  /// For people: "/dev/dri/renderD128 (virtio-pci)".
  std::string description() const;
  /// An initialised display; EGL_NO_DISPLAY where the device refuses.
  EGLDisplay open() const;
};

}  // namespace tavrel
