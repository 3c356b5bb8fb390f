#pragma once

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "GPUImage/TavrelGPUTextureOptions.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Graphics/GLContext.h"
#include "Platform/Graphics/TextureCache.h"

namespace tavrel {

class TavrelGLProgram;
class TavrelGPUImageFramebufferCache;

/// How filters bring an input to another size.
struct TavrelGPUImageScaling {
  bool enlargesByBicubic = false;  ///< to more than twice the size, by Keys's kernel, a = -0.5; else linearly
  bool worksInLight = false;       ///< for that, and reducing below 2/3: linear light, if textures can be deep
  bool operator==(const TavrelGPUImageScaling&) const = default;
};

/// An OpenGL ES 2.0 context of the library, with the serial queue on which all its GL calls run, its shader programs,
/// and its texture and framebuffer caches.
///
/// The shared instance serves the filter graph; others, such as the movie writer's, share GL objects with it through a
/// sharegroup. Create with `std::make_shared`. Call members on the context's queue unless *any thread* is stated.
class TAVREL_API TavrelGPUImageContext : public std::enable_shared_from_this<TavrelGPUImageContext> {
 public:
  TavrelGPUImageContext();
  TavrelGPUImageContext(const TavrelGPUImageContext&) = delete;
  TavrelGPUImageContext& operator=(const TavrelGPUImageContext&) = delete;
  /// Any thread.
  ~TavrelGPUImageContext();

  /// The key of the queue-specific value under which each context stores itself in its queue. Any thread.
  static const void* contextKey();
  /// Created on first use, which also starts the periodic purge of idle framebuffers; never destroyed. Any thread.
  static const std::shared_ptr<TavrelGPUImageContext>& sharedImageProcessingContext();
  /// The video-processing queue. Any thread.
  static const std::shared_ptr<DispatchQueue>& sharedContextQueue();
  static const std::shared_ptr<TavrelGPUImageFramebufferCache>& sharedFramebufferCache();
  /// Makes the shared instance's GL context current.
  static void useImageProcessingContext();
  static void setActiveShaderProgram(const std::shared_ptr<TavrelGLProgram>& program);

  /// Limits of the GL implementation, read once. Any thread.
  static GLint maximumTextureSizeForThisDevice();
  static GLint maximumTextureUnitsForThisDevice();
  static GLint maximumVaryingVectorsForThisDevice();
  /// True if the GL implementation lists exactly this name. Any thread.
  static bool deviceSupportsOpenGLESExtension(std::string_view extension);
  /// The options of textures with 16 bits for each component, which can be rendered to: whole numbers where the driver
  /// has GL_EXT_texture_norm16, else floating-point ones; nothing where it has neither. Any thread.
  static std::optional<TavrelGPUTextureOptions> deepTextureOptions();
  /// The scaling of all filters, from their next frame on. Any thread.
  static TavrelGPUImageScaling scaling();
  static void setScaling(TavrelGPUImageScaling newValue);
  /// Whether filters draw into deep textures, if the driver has them; movies dither those to 8 bits. False by default.
  /// Any thread.
  static bool worksDeep();
  static void setWorksDeep(bool newValue);
  static bool deviceSupportsRedTextures();
  static bool deviceSupportsFramebufferReads();
  /// `size`, scaled down if necessary so that the larger side is the maximum texture size. May be fractional. Any
  /// thread.
  static Size sizeThatFitsWithinATextureForSize(Size size);
  /// The same for a limit of `maximum` pixels.
  static Size sizeThatFitsWithin(double maximum, Size size);
  /// True if framebuffers are backed by pixel buffers (the fast path), false if by plain textures; see
  /// `TextureCache::isSupported`. Any thread.
  static bool supportsFastTextureUpload();
  /// Releases idle framebuffers now, and then every second while the main queue runs. Any thread.
  static void purgeFrameBufferCache();

  /// Makes this context current on the calling thread. In a block on another context's queue, the context is borrowed
  /// from its own thread until that block ends. On any other thread it stops the program if the context is current
  /// elsewhere.
  void useAsCurrentContext();
  /// Makes the context current and uses `program`.
  void setContextShaderProgram(const std::shared_ptr<TavrelGLProgram>& program);
  /// Presents the renderbuffer bound to `GL_RENDERBUFFER`.
  void presentBufferForDisplay();
  /// The program of these sources, created on first request and cached. It may not be linked yet; see
  /// `TavrelGLProgram::initialized`.
  std::shared_ptr<TavrelGLProgram> programForVertexShaderString(std::string_view vertexShaderString,
                                                                std::string_view fragmentShaderString);
  /// Sets the sharegroup to create the context in. After the first use of `context` it stops the program. Any thread.
  void useSharegroup(std::shared_ptr<GLSharegroup> sharegroup);
  /// Created on first use; stops the program on failure. Any thread.
  const std::shared_ptr<GLContext>& context();
  /// Like `context`, but returns an error on failure, and may be retried. Any thread.
  Expected<void> prepareContext();
  /// Whether the context was created. Any thread.
  bool hasContext() const;
  /// Created on first use.
  const std::shared_ptr<TextureCache>& coreVideoTextureCache();
  /// Created on first use. Any thread.
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

/// The attribute of the library's serial queues: standard quality of service.
TAVREL_API DispatchQueueAttribute TavrelGPUImageDefaultQueueAttribute();

/// Runs `block` on the main thread and returns after it; directly if called there. Any thread.
TAVREL_API void TavrelRunOnMainQueueWithoutDeadlocking(const std::function<void()>& block);

/// Runs `block` on the context's queue and returns after it. Called on *any* context's queue, it runs the block there,
/// inline, so that nested calls cannot deadlock. Any thread.
TAVREL_API void TavrelRunSynchronouslyOnContextQueue(TavrelGPUImageContext& context,
                                                     const std::function<void()>& block);
/// Submits `block` to the context's queue; called on any context's queue, it runs the block inline. Any thread.
TAVREL_API void TavrelRunAsynchronouslyOnContextQueue(TavrelGPUImageContext& context, std::function<void()> block);
/// The same for the shared context's queue, the *video-processing queue*.
TAVREL_API void TavrelRunSynchronouslyOnVideoProcessingQueue(const std::function<void()>& block);
TAVREL_API void TavrelRunAsynchronouslyOnVideoProcessingQueue(std::function<void()> block);

/// Writes the process's resident memory to the console as "TAG - Memory used: BYTES"; TAG defaults to "Default".
TAVREL_API void reportAvailableMemoryForTavrelGPUImage(std::string_view tag = {});

}  // namespace tavrel
