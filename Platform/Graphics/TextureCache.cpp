#include "Platform/Graphics/TextureCache.h"

#include <atomic>
#include <string_view>
#include <utility>

#include "Platform/Foundation/Environment.h"
#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/Graphics/Private/DmaBufDevice.h"
#include "Platform/Graphics/Private/GraphicsFailure.h"
#include "Platform/Graphics/Private/TextureCacheCore.h"
#include "Platform/Graphics/Private/TextureRequest.h"
#include "Platform/Graphics/Private/TransferCounters.h"

namespace tavrel {
namespace {

/// Whether the fast path is in use: open for decision until somebody asks.
class Support {
 public:
  void set(bool supported) {
    if (!asked_) wanted_ = supported ? Answer::yes : Answer::no;
  }

  bool ask() {
    static const bool answer = decide();
    return answer;
  }

 private:
  enum class Answer { open, no, yes };

  bool decide() {
    asked_ = true;
    if (wanted_ != Answer::open) return wanted_ == Answer::yes;
    return environmentVariable("TAVREL_FAST_TEXTURE_UPLOAD") != "0";
  }

  std::atomic<Answer> wanted_ = Answer::open;
  std::atomic<bool> asked_ = false;
};

constinit Support support;

}  // namespace

Expected<std::shared_ptr<TextureCache>> TextureCache::create(const std::shared_ptr<GLContext>& context,
                                                             Executor executor) {
  if (context == nullptr) {
    return graphicsFailure(GraphicsStatus::invalidArgument, "a texture cache needs a context, and was given none");
  }
  auto core = std::make_shared<TextureCacheCore>(context->sharegroup(), std::move(executor));
  return std::shared_ptr<TextureCache>(new TextureCache(std::move(core)));
}

TextureCache::TextureCache(std::shared_ptr<TextureCacheCore> core) : core_(std::move(core)) {
  core_->sharegroup()->cacheOpened();
}

TextureCache::~TextureCache() { core_->sharegroup()->cacheClosed(); }

Expected<std::shared_ptr<TextureCacheTexture>> TextureCache::createTextureFromPixelBuffer(
    const std::shared_ptr<PixelBuffer>& buffer, GLint internalFormat, GLsizei width, GLsizei height, GLenum format,
    GLenum type, std::size_t planeIndex) {
  if (buffer == nullptr) {
    return graphicsFailure(GraphicsStatus::invalidArgument, "a texture needs a pixel buffer, and was given none");
  }
  const TextureRequest request{internalFormat, width, height, format, type, planeIndex};
  auto texture = buffer->texture(core_, request);
  if (!texture) return tl::unexpected<Error>(texture.error());
  return std::make_shared<TextureCacheTexture>(buffer, std::move(*texture));
}

Expected<std::shared_ptr<TextureCacheTexture>> TextureCache::createTextureFromPixelBuffer(
    const std::shared_ptr<PixelBuffer>& buffer) {
  auto texture = createTextureFromPixelBuffer(buffer, GL_RGBA, static_cast<GLsizei>(buffer->width()),
                                              static_cast<GLsizei>(buffer->height()), GL_BGRA_EXT, GL_UNSIGNED_BYTE, 0);
  if (texture) setDefaultTextureParameters((*texture)->name());
  return texture;
}

GLint TextureCache::internalFormat(GLint internalFormat, GLenum format) {
  const GLContext* const context = GLContext::current();
  if (context == nullptr || format != GL_BGRA_EXT) return internalFormat;
  return context->sharegroup()->capabilities().bgraInternalFormat();
}

void TextureCache::flush() {
  core_->run([this](NativeContext&) { core_->sharegroup()->deleteIdleTextures(); });
}

bool TextureCache::sharesMemory() {
  GraphicsDisplay::shared();
  return DmaBufDevice::shared() != nullptr;
}

bool TextureCache::isSupported() { return support.ask(); }

void TextureCache::setSupported(bool supported) { support.set(supported); }

TextureCache::Statistics TextureCache::statistics() {
  const TransferCounters& counters = TransferCounters::shared();
  return {.texturesCreated = counters.texturesCreated,
          .texturesDeleted = counters.texturesDeleted,
          .framebuffersCreated = counters.framebuffersCreated,
          .uploads = counters.uploads,
          .bytesUploaded = counters.bytesUploaded,
          .downloads = counters.downloads,
          .bytesDownloaded = counters.bytesDownloaded,
          .blocksAllocated = counters.blocksAllocated,
          .bytesAllocated = counters.bytesAllocated,
          .bytesCopied = counters.bytesCopied};
}

}  // namespace tavrel
