// Gives Mesa's software renderer what a graphics device has that shares memory with the CPU: GBM, whose buffers are
// files in memory with padded rows, and EGL's import of them, and of other devices' (ForeignMemory.h), as dma-bufs. To
// be preloaded.
//
// Textures and bytes change at the moments at which the rules allow it, and not before: bytes that the CPU wrote are
// seen once its access has ended, what GL drew is in the bytes once it was sent off (glFlush, glFinish, a read or a
// change of the context). Bytes that are changed while commands not yet sent off are to read them end the process.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <GLES3/gl3.h>
#include <gbm.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "ForeignMemory.h"
#include "GLState.h"
#include "NextFunction.h"
#include "SharedMemory.h"

namespace {

/// A texture's name and the first of the contexts that share it.
using TextureKey = std::pair<EGLContext, GLuint>;

struct ImportedTexture {
  std::shared_ptr<Memory> memory;
  std::uint64_t shownVersion = 0;
};

/// What an image shows: memory of the device's own, or another's.
struct Image {
  std::shared_ptr<Memory> memory;
  std::shared_ptr<ForeignMemory> foreign;
};

struct ForeignTexture {
  std::shared_ptr<ForeignMemory> memory;
  bool isShown = false;  // since the texture was last told of it
};

/// What a context was told and has not sent off.
struct Commands {
  std::set<TextureKey> drawn;
  std::set<std::shared_ptr<Memory>> sampled;
};

struct Driver {
  std::map<EGLContext, EGLContext> firstOfShared;
  std::map<TextureKey, ImportedTexture> textures;
  std::map<TextureKey, ForeignTexture> foreignTextures;
  std::map<EGLContext, Readings> readings;
  std::map<EGLContext, Commands> commands;
  std::set<EGLImageKHR> images;
};

Driver& driver() {
  static auto* const instance = new Driver();
  return *instance;
}

EGLContext currentContext() { return NEXT(eglGetCurrentContext)(); }

TextureKey keyOf(GLuint texture) { return {driver().firstOfShared[currentContext()], texture}; }

void refreshForeign(GLuint name) {
  const auto found = driver().foreignTextures.find(keyOf(name));
  if (found == driver().foreignTextures.end() || std::exchange(found->second.isShown, true)) return;
  const GLuint previous = boundTexture();
  NEXT(glBindTexture)(GL_TEXTURE_2D, name);
  found->second.memory->upload();
  NEXT(glBindTexture)(GL_TEXTURE_2D, previous);
}

/// Brings the memory's bytes to the texture, if it shows others.
void refresh(GLuint name) {
  refreshForeign(name);
  const auto found = driver().textures.find(keyOf(name));
  if (found == driver().textures.end()) return;
  auto& [memory, shownVersion] = found->second;
  if (shownVersion == memory->version) return;
  const GLuint previous = boundTexture();
  const Rows rows(GL_UNPACK_ROW_LENGTH, GL_UNPACK_ALIGNMENT, static_cast<GLint>(memory->bytesPerRow / 4));
  NEXT(glBindTexture)(GL_TEXTURE_2D, name);
  NEXT(glTexSubImage2D)
  (GL_TEXTURE_2D, 0, 0, 0, static_cast<GLsizei>(memory->width), static_cast<GLsizei>(memory->height), GL_BGRA_EXT,
   GL_UNSIGNED_BYTE, memory->bytes);
  NEXT(glBindTexture)(GL_TEXTURE_2D, previous);
  shownVersion = memory->version;
}

/// Brings what was drawn into the texture to the memory.
void publish(const TextureKey& key) {
  const auto found = driver().textures.find(key);
  if (found == driver().textures.end()) return;
  auto& [memory, shownVersion] = found->second;
  GLint previous = 0;
  NEXT(glGetIntegerv)(GL_FRAMEBUFFER_BINDING, &previous);
  GLuint framebuffer = 0;
  NEXT(glGenFramebuffers)(1, &framebuffer);
  NEXT(glBindFramebuffer)(GL_FRAMEBUFFER, framebuffer);
  NEXT(glFramebufferTexture2D)(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, key.second, 0);
  {
    const Rows rows(GL_PACK_ROW_LENGTH, GL_PACK_ALIGNMENT, static_cast<GLint>(memory->bytesPerRow / 4));
    NEXT(glReadPixels)
    (0, 0, static_cast<GLsizei>(memory->width), static_cast<GLsizei>(memory->height), GL_BGRA_EXT, GL_UNSIGNED_BYTE,
     memory->bytes);
  }
  NEXT(glBindFramebuffer)(GL_FRAMEBUFFER, static_cast<GLuint>(previous));
  NEXT(glDeleteFramebuffers)(1, &framebuffer);
  shownVersion = ++memory->version;
}

/// What was told to the current context becomes true.
void sendOff() {
  const DriverGuard guard(driverMutex());
  const auto found = driver().commands.find(currentContext());
  if (found == driver().commands.end()) return;
  const Commands commands = std::exchange(found->second, {});
  for (const TextureKey& key : commands.drawn) publish(key);
  for (const auto& memory : commands.sampled) --memory->unsentReads;
}

void noteDrawing() {
  const TextureKey key = keyOf(attachedTexture());
  if (driver().textures.contains(key)) driver().commands[currentContext()].drawn.insert(key);
}

EGLImageKHR createImage(EGLDisplay display, EGLContext context, EGLenum target, EGLClientBuffer buffer,
                        const EGLint* attributes) {
  if (target != EGL_LINUX_DMA_BUF_EXT) {
    static auto* const next = reinterpret_cast<PFNEGLCREATEIMAGEKHRPROC>(NEXT(eglGetProcAddress)("eglCreateImageKHR"));
    return next(display, context, target, buffer, attributes);
  }
  std::map<EGLint, EGLint> values;
  for (; *attributes != EGL_NONE; attributes += 2) values[attributes[0]] = attributes[1];
  const DriverGuard guard(driverMutex());
  const std::shared_ptr<Memory> memory = Memory::ofFile(values[EGL_DMA_BUF_PLANE0_FD_EXT]);
  if (memory == nullptr) {
    const auto foreign = ForeignMemory::create(values);
    return foreign ? *driver().images.insert(new Image{nullptr, foreign}).first : EGL_NO_IMAGE_KHR;
  }
  if (static_cast<std::uint32_t>(values[EGL_DMA_BUF_PLANE0_PITCH_EXT]) != memory->bytesPerRow ||
      static_cast<std::uint32_t>(values[EGL_WIDTH]) != memory->width ||
      static_cast<std::uint32_t>(values[EGL_HEIGHT]) != memory->height ||
      values[EGL_LINUX_DRM_FOURCC_EXT] != GBM_FORMAT_ARGB8888) {
    return EGL_NO_IMAGE_KHR;
  }
  EGLImageKHR image = new Image{memory, nullptr};
  driver().images.insert(image);
  return image;
}

EGLBoolean destroyImage(EGLDisplay display, EGLImageKHR image) {
  const DriverGuard guard(driverMutex());
  if (driver().images.erase(image) == 0) {
    static auto* const next =
        reinterpret_cast<PFNEGLDESTROYIMAGEKHRPROC>(NEXT(eglGetProcAddress)("eglDestroyImageKHR"));
    return next(display, image);
  }
  delete static_cast<Image*>(image);
  return EGL_TRUE;
}

void imageTargetTexture(GLenum target, GLeglImageOES image) {
  const DriverGuard guard(driverMutex());
  if (!driver().images.contains(image)) {
    static auto* const next =
        reinterpret_cast<PFNGLEGLIMAGETARGETTEXTURE2DOESPROC>(NEXT(eglGetProcAddress)("glEGLImageTargetTexture2DOES"));
    return next(target, image);
  }
  const auto& [memory, foreign] = *static_cast<Image*>(image);
  const TextureKey key = keyOf(boundTexture());
  driver().textures.erase(key);
  driver().foreignTextures.erase(key);
  if (foreign) {
    driver().foreignTextures[key] = {foreign};
    return;
  }
  NEXT(glTexImage2D)
  (target, 0, GL_BGRA_EXT, static_cast<GLsizei>(memory->width), static_cast<GLsizei>(memory->height), 0, GL_BGRA_EXT,
   GL_UNSIGNED_BYTE, nullptr);
  driver().textures[key] = {memory};
}

EGLBoolean queryModifiers(EGLDisplay, EGLint format, EGLint most, EGLuint64KHR* modifiers, EGLBoolean* isExternalOnly,
                          EGLint* count) {
  const auto all = ForeignMemory::modifiersOf(format);
  *count = static_cast<EGLint>(all.size());
  for (std::size_t i = 0; i < std::min(all.size(), static_cast<std::size_t>(most)); ++i) {
    modifiers[i] = all[i];
    isExternalOnly[i] = all[i] == ForeignMemory::kExternalOnly ? EGL_TRUE : EGL_FALSE;
  }
  return EGL_TRUE;
}

const char* deviceString(EGLDeviceEXT, EGLint name) {
  if (name == EGL_EXTENSIONS) return "EGL_EXT_device_drm EGL_EXT_device_drm_render_node";
  return name == EGL_DRM_RENDER_NODE_FILE_EXT ? "/dev/null" : nullptr;
}

}  // namespace

Readings takeReadings() {
  const DriverGuard guard(driverMutex());
  return std::exchange(driver().readings[currentContext()], {});
}

extern "C" {

const char* eglQueryString(EGLDisplay display, EGLint name) {
  const char* const value = NEXT(eglQueryString)(display, name);
  if (value == nullptr || display == EGL_NO_DISPLAY || name != EGL_EXTENSIONS) return value;
  thread_local std::string list;
  list = std::string(value) + " EGL_EXT_image_dma_buf_import EGL_EXT_image_dma_buf_import_modifiers";
  return list.c_str();
}

EGLContext eglCreateContext(EGLDisplay display, EGLConfig config, EGLContext shared, const EGLint* attributes) {
  EGLContext context = NEXT(eglCreateContext)(display, config, shared, attributes);
  const DriverGuard guard(driverMutex());
  driver().firstOfShared[context] = shared != EGL_NO_CONTEXT ? driver().firstOfShared[shared] : context;
  return context;
}

EGLBoolean eglMakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context) {
  if (currentContext() != context) sendOff();
  return NEXT(eglMakeCurrent)(display, draw, read, context);
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
__eglMustCastToProperFunctionPointerType eglGetProcAddress(const char* name) {
  using Address = __eglMustCastToProperFunctionPointerType;
  static const std::map<std::string, Address> ours = {
      {"eglCreateImageKHR", reinterpret_cast<Address>(&createImage)},
      {"eglDestroyImageKHR", reinterpret_cast<Address>(&destroyImage)},
      {"glEGLImageTargetTexture2DOES", reinterpret_cast<Address>(&imageTargetTexture)},
      {"eglQueryDmaBufModifiersEXT", reinterpret_cast<Address>(&queryModifiers)},
      {"eglCreateSyncKHR", reinterpret_cast<Address>(&createSync)},
      {"eglDestroySyncKHR", reinterpret_cast<Address>(&destroySync)},
      {"eglClientWaitSyncKHR", reinterpret_cast<Address>(&clientWaitSync)},
      {"eglWaitSyncKHR", reinterpret_cast<Address>(&waitSync)},
      {"eglQueryDeviceStringEXT", reinterpret_cast<Address>(&deviceString)},
  };
  const auto found = ours.find(name);
  return found != ours.end() ? found->second : NEXT(eglGetProcAddress)(name);
}

void glClear(GLbitfield mask) {
  const DriverGuard guard(driverMutex());
  refresh(attachedTexture());
  NEXT(glClear)(mask);
  noteDrawing();
}

void glDrawArrays(GLenum mode, GLint first, GLsizei count) {
  const DriverGuard guard(driverMutex());
  refresh(attachedTexture());
  for (const GLuint texture : sampledTextures()) {
    refresh(texture);
    if (const auto foreign = driver().foreignTextures.find(keyOf(texture)); foreign != driver().foreignTextures.end()) {
      const auto& memory = foreign->second.memory;
      driver().readings[currentContext()].try_emplace(memory, memory->checksum());
    }
    const auto found = driver().textures.find(keyOf(texture));
    if (found == driver().textures.end()) continue;
    const auto& memory = found->second.memory;
    if (driver().commands[currentContext()].sampled.insert(memory).second) ++memory->unsentReads;
  }
  NEXT(glDrawArrays)(mode, first, count);
  noteDrawing();
}

void glReadPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type, void* pixels) {
  sendOff();
  const DriverGuard guard(driverMutex());
  refresh(attachedTexture());
  NEXT(glReadPixels)(x, y, width, height, format, type, pixels);
}

void glDeleteTextures(GLsizei count, const GLuint* names) {
  const DriverGuard guard(driverMutex());
  for (GLsizei i = 0; i < count; ++i) {
    const TextureKey key = keyOf(names[i]);
    for (auto& [context, commands] : driver().commands) {
      if (commands.drawn.erase(key) > 0) publish(key);
    }
    driver().textures.erase(key);
    driver().foreignTextures.erase(key);
  }
  NEXT(glDeleteTextures)(count, names);
}

void glFlush() {
  sendOff();
  NEXT(glFlush)();
}

void glFinish() {
  sendOff();
  NEXT(glFinish)();
  expectUnchanged(takeReadings());
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
void glTexImage2D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height, GLint border,
                  GLenum format, GLenum type, const void* pixels) {
  {
    const DriverGuard guard(driverMutex());
    const TextureKey key = keyOf(boundTexture());
    driver().textures.erase(key);
    driver().foreignTextures.erase(key);
  }
  NEXT(glTexImage2D)(target, level, internalFormat, width, height, border, format, type, pixels);
}

}  // extern "C"
