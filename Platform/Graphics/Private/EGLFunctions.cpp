#include "Platform/Graphics/Private/EGLFunctions.h"

namespace tavrel {
namespace {

template <typename Function>
void find(Function& function, const char* name) {
  function = reinterpret_cast<Function>(eglGetProcAddress(name));
}

}  // namespace

const EGLFunctions& EGLFunctions::shared() {
  static const EGLFunctions functions = [] {
    EGLFunctions found{};
    find(found.getPlatformDisplay, "eglGetPlatformDisplayEXT");
    find(found.queryDevices, "eglQueryDevicesEXT");
    find(found.queryDisplayAttribute, "eglQueryDisplayAttribEXT");
    find(found.queryDeviceString, "eglQueryDeviceStringEXT");
    find(found.createImage, "eglCreateImageKHR");
    find(found.destroyImage, "eglDestroyImageKHR");
    find(found.imageTargetTexture, "glEGLImageTargetTexture2DOES");
    find(found.imageTargetRenderbufferStorage, "glEGLImageTargetRenderbufferStorageOES");
    find(found.queryModifiers, "eglQueryDmaBufModifiersEXT");
    find(found.createSync, "eglCreateSyncKHR");
    find(found.destroySync, "eglDestroySyncKHR");
    find(found.clientWaitSync, "eglClientWaitSyncKHR");
    find(found.waitSync, "eglWaitSyncKHR");
    return found;
  }();
  return functions;
}

}  // namespace tavrel
