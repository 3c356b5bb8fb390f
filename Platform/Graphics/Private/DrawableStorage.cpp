#include "Platform/Graphics/Private/DrawableStorage.h"

#include <GLES2/gl2ext.h>

#include <atomic>
#include <utility>

#include "Platform/Graphics/Private/GLStateKeepers.h"

namespace tavrel {
namespace {

std::atomic<std::uint64_t> lastSequenceNumber = 0;

}  // namespace

std::unique_ptr<DrawableStorage> DrawableStorage::create(const std::shared_ptr<GLSharegroup>& sharegroup,
                                                         std::shared_ptr<GLDrawable> drawable,
                                                         GLDrawable::PixelSize size) {
  std::unique_ptr<DrawableStorage> storage(new DrawableStorage);
  storage->sharegroup_ = sharegroup;
  storage->drawable_ = std::move(drawable);
  storage->size_ = size;
  storage->drawing_ = storage->nextTexture();
  if (!storage->drawing_) return nullptr;
  storage->isCopying_ = !storage->drawing_->becomeRenderbufferStorage();
  if (storage->isCopying_) glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8_OES, size.width, size.height);
  return storage;
}

std::unique_ptr<DrawableTexture> DrawableStorage::nextTexture() {
  auto texture = pool_->take(textureCount_ >= kMostTextures);
  if (!texture) {
    // Above the limit only while somebody keeps frames.
    texture = DrawableTexture::create(sharegroup_, size_);
    if (texture) ++textureCount_;
  }
  if (texture) texture->waitUntilRead();
  return texture;
}

bool DrawableStorage::present() {
  if (!drawing_) drawing_ = nextTexture();
  if (!drawing_) return false;
  if (isCopying_) {
    const BoundTexture bound(drawing_->name());
    glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 0, size_.width, size_.height);
  }
  drawing_->noteDrawn();
  drawable_->publish(std::make_shared<GLDrawableFrame>(std::move(drawing_), pool_, ++lastSequenceNumber));
  drawing_ = nextTexture();
  return drawing_ && (isCopying_ || drawing_->becomeRenderbufferStorage());
}

}  // namespace tavrel
