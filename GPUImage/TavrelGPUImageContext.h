#pragma once

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include <functional>
#include <memory>
#include <string_view>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Graphics/GLContext.h"
#include "Platform/Graphics/TextureCache.h"

namespace tavrel {

class TavrelGLProgram;
class TavrelGPUImageFramebufferCache;

/// The place where the library's OpenGL ES 2.0 context lives: the context, the serial queue on which all of its GL
/// calls run, its shader programs and its texture and framebuffer caches.
///
/// One shared instance serves the filter graph. Further instances, such as the movie writer's, share GL objects with it
/// through a sharegroup. Made by `std::make_shared`. Operations are called on the context's queue unless they say *any
/// thread*.
class TAVREL_API TavrelGPUImageContext : public std::enable_shared_from_this<TavrelGPUImageContext> {
 public:
  TavrelGPUImageContext();
  TavrelGPUImageContext(const TavrelGPUImageContext&) = delete;
  TavrelGPUImageContext& operator=(const TavrelGPUImageContext&) = delete;
  /// Any thread.
  ~TavrelGPUImageContext();

  /// The key under which every context stores itself as the specific value of its queue. Any thread.
  static const void* contextKey();
  /// Created on first use, which also starts the periodic purge of idle framebuffers; lives until the process ends. Any
  /// thread.
  static const std::shared_ptr<TavrelGPUImageContext>& sharedImageProcessingContext();
  /// The video-processing queue. Any thread.
  static const std::shared_ptr<DispatchQueue>& sharedContextQueue();
  static const std::shared_ptr<TavrelGPUImageFramebufferCache>& sharedFramebufferCache();
  /// Makes the shared instance's GL context current.
  static void useImageProcessingContext();
  static void setActiveShaderProgram(const std::shared_ptr<TavrelGLProgram>& program);

  /// Limits of the GL implementation, read once for the process. Any thread.
  static GLint maximumTextureSizeForThisDevice();
  static GLint maximumTextureUnitsForThisDevice();
  static GLint maximumVaryingVectorsForThisDevice();
  /// True when the implementation lists exactly this name. Any thread.
  static bool deviceSupportsOpenGLESExtension(std::string_view extension);
  static bool deviceSupportsRedTextures();
  static bool deviceSupportsFramebufferReads();
  /// `size`, or the size of the same proportions whose larger side is the largest that a texture may have. Results may
  /// have fractional parts. Any thread.
  static Size sizeThatFitsWithinATextureForSize(Size size);
  /// The same for a texture limit of `maximum` pixels.
  static Size sizeThatFitsWithin(double maximum, Size size);
  /// True when framebuffers are backed by pixel buffers (the fast path), false when by plain textures. See
  /// `TextureCache::isSupported`. Any thread.
  static bool supportsFastTextureUpload();
  /// Releases idle framebuffers now and again about every second from then on, for as long as the main queue runs. Any
  /// thread.
  static void purgeFrameBufferCache();

  /// Makes this context current on the calling thread, unless it is already. Inside a block that runs on another
  /// context's queue the context is borrowed from its own thread and goes back when that block ends. On a thread of no
  /// context queue this stops the program when the context is current elsewhere.
  void useAsCurrentContext();
  /// Makes the context current and `program` its program; GL is called only when it is another one than before.
  void setContextShaderProgram(const std::shared_ptr<TavrelGLProgram>& program);
  /// Shows what was drawn into the renderbuffer bound to `GL_RENDERBUFFER`.
  void presentBufferForDisplay();
  /// The program of these two sources, made on first request and kept. It may not be linked yet: see
  /// `TavrelGLProgram::initialized`.
  std::shared_ptr<TavrelGLProgram> programForVertexShaderString(std::string_view vertexShaderString,
                                                                std::string_view fragmentShaderString);
  /// Makes the context, once it is created, share textures and programs with others. Only before the first use of
  /// `context`, else the program stops. Any thread.
  void useSharegroup(std::shared_ptr<GLSharegroup> sharegroup);
  /// Created on first request; when there can be none, the program stops. Any thread.
  const std::shared_ptr<GLContext>& context();
  /// Creates the context like `context`, but when there can be none, says why. May be tried again. Any thread.
  Expected<void> prepareContext();
  /// Whether it was created. Any thread.
  bool hasContext() const;
  /// Created on first request.
  const std::shared_ptr<TextureCache>& coreVideoTextureCache();
  /// Created on first request. Any thread.
  const std::shared_ptr<TavrelGPUImageFramebufferCache>& framebufferCache();
  /// Any thread.
  const std::shared_ptr<DispatchQueue>& contextQueue() const;
  const std::shared_ptr<TavrelGLProgram>& currentShaderProgram() const;
  void setCurrentShaderProgram(std::shared_ptr<TavrelGLProgram> program);

 private:
  struct Implementation;

  Expected<void> makeContext();

  std::unique_ptr<Implementation> implementation_;
};

/// The attribute with which the library creates its serial queues: serial, of the standard quality of service.
TAVREL_API DispatchQueueAttribute TavrelGPUImageDefaultQueueAttribute();

/// Runs `block` on the main thread and returns after it: at once when called there. Any thread.
TAVREL_API void TavrelRunOnMainQueueWithoutDeadlocking(const std::function<void()>& block);

/// Runs `block` on the context's queue and returns after it. On *any* context's queue already, it runs inline, on that
/// queue: nested submissions cannot deadlock. Any thread.
TAVREL_API void TavrelRunSynchronouslyOnContextQueue(TavrelGPUImageContext& context,
                                                     const std::function<void()>& block);
/// Submits `block` to the context's queue. On any context's queue already, it runs inline, before this returns. Any
/// thread.
TAVREL_API void TavrelRunAsynchronouslyOnContextQueue(TavrelGPUImageContext& context, std::function<void()> block);
/// The same two for the queue of the shared context, the *video-processing queue*.
TAVREL_API void TavrelRunSynchronouslyOnVideoProcessingQueue(const std::function<void()>& block);
TAVREL_API void TavrelRunAsynchronouslyOnVideoProcessingQueue(std::function<void()> block);

/// Writes the process's resident memory to the console as "TAG - Memory used: BYTES"; without a tag, as "Default".
TAVREL_API void reportAvailableMemoryForTavrelGPUImage(std::string_view tag = {});

}  // namespace tavrel
