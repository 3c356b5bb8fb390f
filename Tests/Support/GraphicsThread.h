#pragma once

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Graphics/GLContext.h"
#include "Platform/Graphics/TextureCache.h"

namespace tavrel {

/// A thread with a context and a texture cache of its own, as the processing graph has one.
class GraphicsThread {
 public:
  explicit GraphicsThread(std::shared_ptr<GLSharegroup> sharegroup = nullptr);
  ~GraphicsThread();

  /// Runs `block` on the thread with the context current; at once when already there.
  void run(const std::function<void()>& block);
  TextureCache::Executor executor();

  std::shared_ptr<DispatchQueue> queue;
  std::shared_ptr<GLContext> context;
  std::shared_ptr<TextureCache> cache;
};

/// A colour as four bytes: blue, green, red, alpha.
using BGRA = std::array<std::uint8_t, 4>;
/// One that no fresh buffer or texture shows.
constexpr BGRA kColour = {10, 20, 30, 255};

std::shared_ptr<PixelBuffer> makeBuffer(std::size_t width, std::size_t height,
                                        PixelFormat format = PixelFormat::bgra32);
/// A BGRA one whose bytes are copied to and from the GPU, on every machine.
std::shared_ptr<PixelBuffer> makeStagedBuffer(std::size_t width, std::size_t height);

/// The texture of the whole BGRA buffer; nullptr and a test failure when there is none.
std::shared_ptr<TextureCacheTexture> textureOf(TextureCache& cache, const std::shared_ptr<PixelBuffer>& buffer);
/// Fills the texture with `colour` through a framebuffer object and notes the write on its buffer. With a context
/// current.
void drawColour(const TextureCacheTexture& texture, const BGRA& colour);
/// The pixel of the texture at (x, y), y from the first row in memory. With a context current.
BGRA texturePixel(const TextureCacheTexture& texture, GLint x = 0, GLint y = 0);
/// Fills the buffer under a write lock.
void writeColour(PixelBuffer& buffer, const BGRA& colour);
/// The pixel of the buffer at (x, y) under a read lock.
BGRA bufferPixel(PixelBuffer& buffer, std::size_t x = 0, std::size_t y = 0);
BGRA snapshotPixel(const PixelBufferSnapshot& snapshot, std::size_t x = 0, std::size_t y = 0);

}  // namespace tavrel
