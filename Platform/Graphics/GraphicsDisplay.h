#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// The process's one EGL display; contexts can share objects only within it.
///
/// Chosen once, on first use: the window system's display when a user interface adopted it before; else a headless one
/// (Mesa's surfaceless platform, then the first EGL device that starts). The environment variable
/// `TAVREL_DISPLAY=headless` refuses adoption. The display is never terminated, so that objects destroyed late, at the
/// end of the process, can still release what they hold. Any thread.
class TAVREL_API GraphicsDisplay {
 public:
  static GraphicsDisplay& shared();

  /// Makes `eglDisplay` (an `EGLDisplay` that the caller initialised and never terminates) the process's display, and
  /// lets all contexts share objects with `eglContext`, which may be none and is never destroyed either. False, with
  /// nothing changed, once another display is in use or when a headless one is demanded.
  static bool adopt(void* eglDisplay, void* eglContext = nullptr);

  /// Whether `shared` was called, after which the display stays what it is.
  static bool isChosen();

  GraphicsDisplay(const GraphicsDisplay&) = delete;
  GraphicsDisplay& operator=(const GraphicsDisplay&) = delete;

  /// Why no display could be opened; empty when there is one.
  const std::optional<Error>& error() const;
  /// True when no window system stands behind the display.
  bool isHeadless() const;
  /// For people: platform, EGL version and vendor, for instance "surfaceless, EGL 1.5, Mesa Project".
  std::string description() const;

  /// The `EGLDisplay`, or null when none could be opened.
  void* nativeDisplay() const;
  /// The `EGLConfig` that contexts are made with; null where contexts need none.
  void* nativeConfig() const;
  /// The `EGLContext` that came with an adopted display; null without one.
  void* nativeShareContext() const;
  /// True when contexts can be current without a surface; otherwise each gets a pbuffer of one pixel.
  bool supportsSurfacelessContexts() const;

 private:
  struct Implementation;

  GraphicsDisplay(void* adoptedDisplay, void* shareContext);
  ~GraphicsDisplay() = delete;

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
