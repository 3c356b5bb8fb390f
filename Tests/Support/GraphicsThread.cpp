#include "Support/GraphicsThread.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <utility>

namespace tavrel {
namespace {

/// A framebuffer object around a texture for the time of a block.
class Attached {
 public:
  explicit Attached(GLuint texture) {
    glGenFramebuffers(1, &framebuffer_);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    EXPECT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), static_cast<GLenum>(GL_FRAMEBUFFER_COMPLETE));
  }
  Attached(const Attached&) = delete;
  Attached& operator=(const Attached&) = delete;
  ~Attached() { glDeleteFramebuffers(1, &framebuffer_); }

 private:
  GLuint framebuffer_ = 0;
};

BGRA pixelAt(const std::uint8_t* bytes, std::size_t bytesPerRow, std::size_t x, std::size_t y) {
  BGRA pixel{};
  std::memcpy(pixel.data(), bytes + y * bytesPerRow + x * 4, 4);
  return pixel;
}

}  // namespace

GraphicsThread::GraphicsThread(std::shared_ptr<GLSharegroup> sharegroup)
    : queue(DispatchQueue::create("test.graphics")) {
  auto created = GLContext::create(std::move(sharegroup));
  if (!created) throw std::runtime_error(created.error().description);
  context = *created;
  cache = TextureCache::create(context, executor()).value();
}

GraphicsThread::~GraphicsThread() { queue->shutDown(); }

void GraphicsThread::run(const std::function<void()>& block) { executor()(block); }

TextureCache::Executor GraphicsThread::executor() {
  return [queueOfContext = queue, weak = std::weak_ptr(context)](const std::function<void()>& block) {
    const auto work = [&] {
      if (auto alive = weak.lock()) alive->makeCurrent();
      block();
    };
    queueOfContext->isCurrent() ? work() : queueOfContext->sync(work);
  };
}

std::shared_ptr<PixelBuffer> makeBuffer(std::size_t width, std::size_t height, PixelFormat format) {
  return PixelBuffer::create(width, height, format).value();
}

std::shared_ptr<PixelBuffer> makeStagedBuffer(std::size_t width, std::size_t height) {
  return PixelBuffer::create(width, height, PixelFormat::bgra32, PixelBufferUse::byGPU).value();
}

std::shared_ptr<TextureCacheTexture> textureOf(TextureCache& cache, const std::shared_ptr<PixelBuffer>& buffer) {
  auto texture =
      cache.createTextureFromPixelBuffer(buffer, GL_RGBA, static_cast<GLsizei>(buffer->width()),
                                         static_cast<GLsizei>(buffer->height()), GL_BGRA_EXT, GL_UNSIGNED_BYTE, 0);
  if (!texture) ADD_FAILURE() << texture.error().description;
  return texture.value_or(nullptr);
}

void drawColour(const TextureCacheTexture& texture, const BGRA& colour) {
  Attached attached(texture.name());
  const auto channel = [&](std::size_t index) { return static_cast<float>(colour[index]) / 255.0F; };
  glClearColor(channel(2), channel(1), channel(0), channel(3));
  glClear(GL_COLOR_BUFFER_BIT);
  texture.pixelBuffer()->noteGPUWrite();
}

BGRA texturePixel(const TextureCacheTexture& texture, GLint x, GLint y) {
  Attached attached(texture.name());
  std::array<std::uint8_t, 4> rgba{};
  glReadPixels(x, y, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
  return {rgba[2], rgba[1], rgba[0], rgba[3]};
}

void writeColour(PixelBuffer& buffer, const BGRA& colour) {
  buffer.lockBaseAddress(PixelBufferLock::readWrite);
  std::uint8_t* bytes = buffer.baseAddress();
  for (std::size_t y = 0; y < buffer.height(); ++y) {
    for (std::size_t x = 0; x < buffer.width(); ++x) {
      std::memcpy(bytes + y * buffer.bytesPerRow() + x * 4, colour.data(), 4);
    }
  }
  buffer.unlockBaseAddress(PixelBufferLock::readWrite);
}

BGRA bufferPixel(PixelBuffer& buffer, std::size_t x, std::size_t y) {
  buffer.lockBaseAddress(PixelBufferLock::readOnly);
  const BGRA pixel = pixelAt(buffer.baseAddress(), buffer.bytesPerRow(), x, y);
  buffer.unlockBaseAddress(PixelBufferLock::readOnly);
  return pixel;
}

BGRA snapshotPixel(const PixelBufferSnapshot& snapshot, std::size_t x, std::size_t y) {
  return pixelAt(snapshot.bytes(), snapshot.bytesPerRow(), x, y);
}

}  // namespace tavrel
