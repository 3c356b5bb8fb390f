#pragma once

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Graphics/GLContext.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/TextureCacheTexture.h"

namespace tavrel {

class TextureCacheCore;

/// Creates and keeps GL textures of pixel buffers, on OpenGL ES 2.0 and, where available, EGL images of dma-bufs.
///
/// Each pixel buffer keeps its texture, and textures of destroyed buffers are reused for new ones of the same size, so
/// that a steady stream of frames creates no GL objects. Contexts of one sharegroup share the textures, whichever cache
/// made them. Any thread.
class TAVREL_API TextureCache {
 public:
  /// Runs the block synchronously on the context's thread, with the context current; at once if called on that thread.
  /// A reader may call it shortly after the cache is destroyed: capture strongly what it needs, or check it.
  using Executor = std::function<void(const std::function<void()>&)>;

  /// Process-wide counts, to measure what a frame costs.
  struct Statistics {
    std::uint64_t texturesCreated = 0;
    std::uint64_t texturesDeleted = 0;
    std::uint64_t framebuffersCreated = 0;  ///< scratch framebuffer objects, one per context that downloads
    std::uint64_t uploads = 0;
    std::uint64_t bytesUploaded = 0;
    std::uint64_t downloads = 0;
    std::uint64_t bytesDownloaded = 0;
    std::uint64_t blocksAllocated = 0;  ///< blocks of pixel memory
    std::uint64_t bytesAllocated = 0;
    std::uint64_t bytesCopied = 0;  ///< copied by the CPU to preserve a snapshot
  };

  /// Fails if `context` is null. The cache holds the context's sharegroup, not the context. Without an executor, every
  /// call must be made with a context of the sharegroup current.
  static Expected<std::shared_ptr<TextureCache>> create(const std::shared_ptr<GLContext>& context, Executor executor);

  TextureCache(const TextureCache&) = delete;
  TextureCache& operator=(const TextureCache&) = delete;
  /// Deletes the idle textures without using the executor. Textures in use stay readable if their drawing has finished
  /// (glFinish).
  ~TextureCache();

  /// A GL_TEXTURE_2D, level 0, with the present contents of `buffer`, created with linear filters and clamped edges.
  /// Uploads the bytes if the CPU wrote them since the last call. 'BGRA' buffers take `internalFormat` GL_RGBA or
  /// GL_BGRA_EXT with `format` GL_BGRA_EXT; the planes of 4:2:0 take GL_LUMINANCE and GL_LUMINANCE_ALPHA, or GL_RED_EXT
  /// and GL_RG_EXT where the driver has them. `type` is GL_UNSIGNED_BYTE; width and height are the plane's. Preserves
  /// GL's bindings.
  Expected<std::shared_ptr<TextureCacheTexture>> createTextureFromPixelBuffer(
      const std::shared_ptr<PixelBuffer>& buffer, GLint internalFormat, GLsizei width, GLsizei height, GLenum format,
      GLenum type, std::size_t planeIndex);
  /// The same for a whole 'BGRA' buffer; resets linear filters and clamped edges.
  Expected<std::shared_ptr<TextureCacheTexture>> createTextureFromPixelBuffer(
      const std::shared_ptr<PixelBuffer>& buffer);

  /// Deletes textures that no pixel buffer or `TextureCacheTexture` uses.
  void flush();

  /// The internal format with which the current context's driver takes bytes of `format`. By
  /// GL_EXT_texture_format_BGRA8888
  /// (https://registry.khronos.org/OpenGL/extensions/EXT/EXT_texture_format_BGRA8888.txt) that is GL_BGRA_EXT for
  /// GL_BGRA_EXT, but GL_RGBA if the driver takes it. Other formats keep `internalFormat`.
  static GLint internalFormat(GLint internalFormat, GLenum format);

  /// Whether new pixel buffers for CPU and GPU are shared memory (`PixelBuffer`). Chooses the display.
  static bool sharesMemory();

  /// Whether pixel buffers back the render targets of the graph. True, unless the environment variable
  /// `TAVREL_FAST_TEXTURE_UPLOAD` is 0 or `setSupported(false)` was called before the first question.
  static bool isSupported();
  /// Overrides the environment variable. Has no effect after the first `isSupported`.
  static void setSupported(bool supported);

  static Statistics statistics();

 private:
  explicit TextureCache(std::shared_ptr<TextureCacheCore> core);

  std::shared_ptr<TextureCacheCore> core_;
};

}  // namespace tavrel
