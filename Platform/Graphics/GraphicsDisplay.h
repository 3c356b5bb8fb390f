#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// The process's EGL display, shared by all contexts.
///
/// Chosen once, on first use: the window system's display when a user interface adopted it before; else a headless one
/// (the first GPU that starts, then Mesa's surfaceless platform, then software as a device). The environment variable
/// `TAVREL_DISPLAY=headless` refuses adoption; `TAVREL_GPU` names the GPU of a headless display, by its render node or
/// part of its name (`deviceNames`); if none matches, no display is opened and `error` says so. The display is never
/// terminated, so that objects destroyed late, at the end of the process, can still release what they hold. Any thread.
class TAVREL_API GraphicsDisplay {
 public:
  static GraphicsDisplay& shared();

  /// Makes `eglDisplay` the process's display, and lets all contexts share objects with `eglContext`, which may be
  /// null. The caller has initialised the display and terminates or destroys neither. False, with nothing changed, if
  /// another display is in use or a headless one is required.
  static bool adopt(void* eglDisplay, void* eglContext = nullptr);

  /// Adopts the EGL display and context that are current on the calling thread, for an application that draws its own
  /// windows and the library's frames in them. Also false if there are none.
  static bool adoptCurrent();

  /// The graphics devices that EGL lists, each as "/dev/dri/renderD128 (virtio-pci)" or "software".
  static std::vector<std::string> deviceNames();

  /// Whether the display was chosen, by the first call of `shared`. It does not change afterwards.
  static bool isChosen();

  GraphicsDisplay(const GraphicsDisplay&) = delete;
  GraphicsDisplay& operator=(const GraphicsDisplay&) = delete;

  /// Why no display could be opened.
  const std::optional<Error>& error() const;
  /// True without a window system.
  bool isHeadless() const;
  /// For people: kind, EGL version and vendor, for instance "surfaceless, EGL 1.5, Mesa Project".
  std::string description() const;

  /// The `EGLDisplay`; null if none could be opened.
  void* nativeDisplay() const;
  /// The `EGLConfig` of contexts; null if they need none.
  void* nativeConfig() const;
  /// The `EGLContext` of an adopted display; null without one.
  void* nativeShareContext() const;
  /// True if contexts can be current without a surface; otherwise each has a 1×1 pbuffer.
  bool supportsSurfacelessContexts() const;

 private:
  struct Implementation;

  GraphicsDisplay(void* adoptedDisplay, void* shareContext);
  ~GraphicsDisplay() = delete;

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
