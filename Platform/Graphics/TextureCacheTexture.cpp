#include "Platform/Graphics/TextureCacheTexture.h"

#include <utility>

#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/Private/GLSharegroup.h"

namespace tavrel {

TextureCacheTexture::TextureCacheTexture(std::shared_ptr<PixelBuffer> buffer, std::shared_ptr<GLTexture> texture)
    : buffer_(std::move(buffer)), texture_(std::move(texture)) {}

TextureCacheTexture::~TextureCacheTexture() { buffer_->noteGPURead(*texture_); }

GLuint TextureCacheTexture::name() const { return texture_->name(); }

void TextureCacheTexture::refresh() {
  if (texture_->sharegroup()->isCurrent()) buffer_->refresh(*texture_);
}

}  // namespace tavrel
