#pragma once

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

namespace tavrel {

/// The entry points of the extensions that this folder stands on, looked up once. EGL may also give a function that no
/// display serves: ask for the extension first. Any thread.
struct EGLFunctions {
  static const EGLFunctions& shared();

  PFNEGLGETPLATFORMDISPLAYEXTPROC getPlatformDisplay;  // EGL_EXT_platform_base
  PFNEGLQUERYDEVICESEXTPROC queryDevices;              // EGL_EXT_device_enumeration
  PFNEGLQUERYDISPLAYATTRIBEXTPROC queryDisplayAttribute;
  PFNEGLQUERYDEVICESTRINGEXTPROC queryDeviceString;  // EGL_EXT_device_query
  PFNEGLCREATEIMAGEKHRPROC createImage;              // EGL_KHR_image_base
  PFNEGLDESTROYIMAGEKHRPROC destroyImage;
  PFNGLEGLIMAGETARGETTEXTURE2DOESPROC imageTargetTexture;  // GL_OES_EGL_image
  PFNGLEGLIMAGETARGETRENDERBUFFERSTORAGEOESPROC imageTargetRenderbufferStorage;
  PFNEGLQUERYDMABUFMODIFIERSEXTPROC queryModifiers;  // EGL_EXT_image_dma_buf_import_modifiers
  PFNEGLCREATESYNCKHRPROC createSync;                // EGL_KHR_fence_sync
  PFNEGLDESTROYSYNCKHRPROC destroySync;
  PFNEGLCLIENTWAITSYNCKHRPROC clientWaitSync;
  PFNEGLWAITSYNCKHRPROC waitSync;  // EGL_KHR_wait_sync

  bool hasImages() const { return createImage && destroyImage && imageTargetTexture && imageTargetRenderbufferStorage; }
  bool hasSyncs() const { return createSync && destroySync && clientWaitSync && waitSync; }
};

}  // namespace tavrel
