#include "Platform/Graphics/GLDrawable.h"

#include <utility>

#include "Platform/Graphics/Private/DrawableTexture.h"

namespace tavrel {

GLDrawableFrame::GLDrawableFrame(std::unique_ptr<DrawableTexture> texture, std::weak_ptr<DrawableTexturePool> pool,
                                 std::uint64_t sequenceNumber)
    : sequenceNumber_(sequenceNumber), pool_(std::move(pool)), texture_(std::move(texture)) {}

GLDrawableFrame::~GLDrawableFrame() {
  if (const auto pool = pool_.lock()) pool->put(std::move(texture_));
}

GLuint GLDrawableFrame::texture() const { return texture_->name(); }

int GLDrawableFrame::width() const { return texture_->size().width; }

int GLDrawableFrame::height() const { return texture_->size().height; }

const std::shared_ptr<GLSharegroup>& GLDrawableFrame::sharegroup() const { return texture_->sharegroup(); }

void GLDrawableFrame::waitUntilDrawn() const {
  const std::lock_guard lock(mutex_);
  texture_->waitUntilDrawn();
}

void GLDrawableFrame::noteRead() const {
  const std::lock_guard lock(mutex_);
  texture_->noteRead();
}

void GLDrawable::setPixelSize(PixelSize size) {
  const std::lock_guard lock(mutex_);
  pixelSize_ = size;
}

GLDrawable::PixelSize GLDrawable::pixelSize() const {
  const std::lock_guard lock(mutex_);
  return pixelSize_;
}

std::shared_ptr<const GLDrawableFrame> GLDrawable::latestFrame() const {
  const std::lock_guard lock(mutex_);
  return latest_;
}

void GLDrawable::publish(std::shared_ptr<const GLDrawableFrame> frame) {
  // The replaced frame is released after the lock: its texture may be deleted then.
  const std::lock_guard lock(mutex_);
  latest_.swap(frame);
}

}  // namespace tavrel
