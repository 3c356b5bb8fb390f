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

/// Makes GL textures that show pixel buffers, and keeps them. On GLES 2.0, with EGL images of dma-bufs where the system
/// has them.
///
/// Each pixel buffer keeps its texture for the next call, and textures of buffers that are gone serve new buffers of
/// the same size, so that a steady stream of frames makes no GL objects. Contexts of one sharegroup share these
/// textures, whichever cache made them. Any thread.
class TAVREL_API TextureCache {
 public:
  /// Runs the block with the cache's context current, on the context's thread, and returns after it. From inside that
  /// thread it runs the block at once. It may be called as long as the cache lives, and a little longer by a reader
  /// that was just about to: capture what it needs strongly or check it.
  using Executor = std::function<void(const std::function<void()>&)>;

  /// Process-wide counts since the start, to prove what a frame costs.
  struct Statistics {
    std::uint64_t texturesCreated = 0;
    std::uint64_t texturesDeleted = 0;
    std::uint64_t framebuffersCreated = 0;  ///< scratch framebuffer objects, one for each context that downloads
    std::uint64_t uploads = 0;
    std::uint64_t bytesUploaded = 0;
    std::uint64_t downloads = 0;
    std::uint64_t bytesDownloaded = 0;
    std::uint64_t blocksAllocated = 0;  ///< pieces of pixel memory taken from the system
    std::uint64_t bytesAllocated = 0;
    std::uint64_t bytesCopied = 0;  ///< copied on the CPU, to keep a snapshot as it was
  };

  /// Fails when `context` is null. The cache keeps the context's sharegroup, not the context. Without an executor every
  /// call must come from a thread with a context of the sharegroup.
  static Expected<std::shared_ptr<TextureCache>> create(const std::shared_ptr<GLContext>& context, Executor executor);

  TextureCache(const TextureCache&) = delete;
  TextureCache& operator=(const TextureCache&) = delete;
  /// Deletes the idle textures without the executor, which may be gone. Pictures in textures that are still in use stay
  /// readable, as far as the drawing was finished (glFinish) before.
  ~TextureCache();

  /// A texture of GL_TEXTURE_2D, level 0, with linear filters and clamped edges (set when it is made), that shows
  /// `buffer` as it is now. Uploads the bytes if the CPU wrote them since the last call. 'BGRA' buffers take
  /// `internalFormat` GL_RGBA or GL_BGRA_EXT with `format` GL_BGRA_EXT; the planes of 4:2:0 take GL_LUMINANCE and
  /// GL_LUMINANCE_ALPHA, or GL_RED_EXT and GL_RG_EXT where the driver has them; `type` is GL_UNSIGNED_BYTE; width and
  /// height are those of the plane. Leaves GL's bindings as they were.
  Expected<std::shared_ptr<TextureCacheTexture>> createTextureFromPixelBuffer(
      const std::shared_ptr<PixelBuffer>& buffer, GLint internalFormat, GLsizei width, GLsizei height, GLenum format,
      GLenum type, std::size_t planeIndex);
  /// The same for the whole of a 'BGRA' buffer; linear filters and clamped edges are set again.
  Expected<std::shared_ptr<TextureCacheTexture>> createTextureFromPixelBuffer(
      const std::shared_ptr<PixelBuffer>& buffer);

  /// Deletes the textures that no pixel buffer and no `TextureCacheTexture` uses.
  void flush();

  /// The internal format with which the driver of the current context takes bytes of `format`. By
  /// GL_EXT_texture_format_BGRA8888
  /// (https://registry.khronos.org/OpenGL/extensions/EXT/EXT_texture_format_BGRA8888.txt) GL_BGRA_EXT wants itself;
  /// where the driver also takes GL_RGBA, that is the answer. Other formats keep `internalFormat`.
  static GLint internalFormat(GLint internalFormat, GLenum format);

  /// Whether pixel buffers back the render targets of the graph. True, unless the environment variable
  /// `TAVREL_FAST_TEXTURE_UPLOAD` is 0 or `setSupported(false)` was called before the first question.
  static bool isSupported();
  /// Decides `isSupported`, over the environment. Ignored once the question was asked.
  static void setSupported(bool supported);

  static Statistics statistics();

 private:
  explicit TextureCache(std::shared_ptr<TextureCacheCore> core);

  std::shared_ptr<TextureCacheCore> core_;
};

}  // namespace tavrel
