#include "Platform/Graphics/TextureCacheTexture.h"

#include <utility>

#include "Platform/Graphics/Private/GLTexture.h"

namespace tavrel {

TextureCacheTexture::TextureCacheTexture(std::shared_ptr<PixelBuffer> buffer, std::shared_ptr<GLTexture> texture)
    : buffer_(std::move(buffer)), texture_(std::move(texture)) {}

TextureCacheTexture::~TextureCacheTexture() = default;

GLuint TextureCacheTexture::name() const { return texture_->name(); }

}  // namespace tavrel
