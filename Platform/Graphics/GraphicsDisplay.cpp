#include "Platform/Graphics/GraphicsDisplay.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Foundation/Environment.h"
#include "Platform/Foundation/ProcessEnd.h"
#include "Platform/Graphics/Private/EGLFunctions.h"
#include "Platform/Graphics/Private/GraphicsDevice.h"
#include "Platform/Graphics/Private/GraphicsFailure.h"
#include "Platform/Graphics/Private/NativeContext.h"

namespace tavrel {
namespace {

struct Choice {
  std::mutex mutex;
  void* adopted = nullptr;
  void* adoptedContext = nullptr;
  GraphicsDisplay* shared = nullptr;
};

Choice& choice() {
  static auto* instance = new Choice();
  return *instance;
}

bool headlessDemanded() { return environmentVariable("TAVREL_DISPLAY") == "headless"; }

EGLDisplay openSurfaceless() {
  const char* extensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
  const auto getPlatformDisplay = EGLFunctions::shared().getPlatformDisplay;
  if (!containsWord(extensions, "EGL_MESA_platform_surfaceless") || !getPlatformDisplay) return EGL_NO_DISPLAY;
  EGLDisplay display = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
  return display != EGL_NO_DISPLAY && eglInitialize(display, nullptr, nullptr) == EGL_TRUE ? display : EGL_NO_DISPLAY;
}

std::vector<std::string> namesOf(const std::vector<GraphicsDevice>& devices) {
  std::vector<std::string> names;
  for (const GraphicsDevice& device : devices) names.push_back(device.description());
  return names;
}

}  // namespace

struct GraphicsDisplay::Implementation {
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLConfig config = nullptr;
  void* shareContext = nullptr;
  std::string platform = "none";
  bool headless = true;
  bool surfacelessContexts = false;
  std::optional<Error> error;

  void open(void* adopted) {
    if (adopted != nullptr) {
      display = adopted;
      platform = "window system";
      headless = false;
      return;
    }
    const std::vector<GraphicsDevice> devices = GraphicsDevice::all();
    const auto choice = environmentVariable("TAVREL_GPU").value_or("");
    if (!choice.empty()) return openChosen(choice, devices);
    openFirst(devices, false);
    if (display != EGL_NO_DISPLAY) return;
    display = openSurfaceless();
    platform = "surfaceless";
    if (display == EGL_NO_DISPLAY) openFirst(devices, true);
  }

  void openChosen(std::string_view choice, const std::vector<GraphicsDevice>& devices) {
    const auto chosen = std::find_if(devices.begin(), devices.end(),
                                     [&](const GraphicsDevice& device) { return device.isMeantBy(choice); });
    if (chosen == devices.end()) {
      return fail(fmt::format("TAVREL_GPU is \"{}\", which is no graphics device of this machine; there {}", choice,
                              devices.empty() ? "is none" : fmt::format("are: {}", fmt::join(namesOf(devices), ", "))));
    }
    openFirst({*chosen}, chosen->isSoftware);
    if (display == EGL_NO_DISPLAY) {
      fail(fmt::format("the graphics device {}, which TAVREL_GPU asks for, cannot be opened: {}", chosen->description(),
                       eglErrorName(eglGetError())));
    }
  }

  void openFirst(const std::vector<GraphicsDevice>& devices, bool isSoftware) {
    for (const GraphicsDevice& device : devices) {
      if (device.isSoftware != isSoftware) continue;
      display = device.open();
      platform = "device " + device.description();
      if (display != EGL_NO_DISPLAY) return;
    }
  }

  void chooseConfig() {
    const char* extensions = eglQueryString(display, EGL_EXTENSIONS);
    surfacelessContexts = containsWord(extensions, "EGL_KHR_surfaceless_context");
    // The default surface type asks for windows, of which a headless display has none.
    static constexpr std::array<EGLint, 13> kWanted = {EGL_SURFACE_TYPE,
                                                       EGL_PBUFFER_BIT,
                                                       EGL_RENDERABLE_TYPE,
                                                       EGL_OPENGL_ES2_BIT,
                                                       EGL_RED_SIZE,
                                                       8,
                                                       EGL_GREEN_SIZE,
                                                       8,
                                                       EGL_BLUE_SIZE,
                                                       8,
                                                       EGL_ALPHA_SIZE,
                                                       8,
                                                       EGL_NONE};
    EGLint count = 0;
    if (eglChooseConfig(display, kWanted.data(), &config, 1, &count) == EGL_TRUE && count > 0) return;
    config = nullptr;
    if (surfacelessContexts && containsWord(extensions, "EGL_KHR_no_config_context")) return;
    fail("the EGL display offers no configuration for OpenGL ES 2.0");
  }

  void fail(std::string description) {
    display = EGL_NO_DISPLAY;
    error = Error{"graphics", static_cast<std::int64_t>(GraphicsStatus::displayUnavailable), std::move(description)};
  }
};

GraphicsDisplay::GraphicsDisplay(void* adoptedDisplay, void* shareContext)
    : implementation_(std::make_unique<Implementation>()) {
  implementation_->shareContext = shareContext;
  implementation_->open(adoptedDisplay);
  if (implementation_->error) return;
  if (implementation_->display == EGL_NO_DISPLAY) {
    implementation_->fail(
        fmt::format("no EGL display could be opened ({}); Mesa's EGL and GLES libraries give one "
                    "without graphics hardware",
                    eglErrorName(eglGetError())));
    return;
  }
  implementation_->chooseConfig();
}

GraphicsDisplay& GraphicsDisplay::shared() {
  static GraphicsDisplay& instance = [&]() -> GraphicsDisplay& {
    std::lock_guard guard(choice().mutex);
    choice().shared = new GraphicsDisplay(choice().adopted, choice().adoptedContext);
    ProcessEnd::noteDriver();
    return *choice().shared;
  }();
  return instance;
}

bool GraphicsDisplay::adopt(void* eglDisplay, void* eglContext) {
  std::lock_guard guard(choice().mutex);
  if (choice().shared != nullptr) return choice().shared->nativeDisplay() == eglDisplay && eglDisplay != nullptr;
  if (eglDisplay == nullptr || headlessDemanded()) return false;
  choice().adopted = eglDisplay;
  choice().adoptedContext = eglContext;
  return true;
}

bool GraphicsDisplay::adoptCurrent() { return adopt(eglGetCurrentDisplay(), eglGetCurrentContext()); }

std::vector<std::string> GraphicsDisplay::deviceNames() { return namesOf(GraphicsDevice::all()); }

bool GraphicsDisplay::isChosen() {
  std::lock_guard guard(choice().mutex);
  return choice().shared != nullptr;
}

const std::optional<Error>& GraphicsDisplay::error() const { return implementation_->error; }

bool GraphicsDisplay::isHeadless() const { return implementation_->headless; }

std::string GraphicsDisplay::description() const {
  if (implementation_->error) return "no display";
  const char* version = eglQueryString(implementation_->display, EGL_VERSION);
  const char* vendor = eglQueryString(implementation_->display, EGL_VENDOR);
  return fmt::format("{}, EGL {}, {}", implementation_->platform, version != nullptr ? version : "?",
                     vendor != nullptr ? vendor : "?");
}

void* GraphicsDisplay::nativeDisplay() const { return implementation_->display; }

void* GraphicsDisplay::nativeConfig() const { return implementation_->config; }

void* GraphicsDisplay::nativeShareContext() const { return implementation_->shareContext; }

bool GraphicsDisplay::supportsSurfacelessContexts() const { return implementation_->surfacelessContexts; }

}  // namespace tavrel
