#include "Platform/Graphics/Private/TextureRequest.h"

#include "Platform/Graphics/Private/GraphicsFailure.h"

namespace tavrel {
namespace {

struct PlaneFormat {
  std::size_t bytesPerSample;
  GLint internalFormat;
  GLenum format;
  bool GLCapabilities::*needs;  ///< what the driver must have; null for plain OpenGL ES 2.0
};

constexpr PlaneFormat kPlaneFormats[] = {
    {4, GL_RGBA, GL_BGRA_EXT, &GLCapabilities::bgraTextures},
    {4, GL_BGRA_EXT, GL_BGRA_EXT, &GLCapabilities::bgraTextures},
    {1, GL_LUMINANCE, GL_LUMINANCE, nullptr},
    {1, GL_RED_EXT, GL_RED_EXT, &GLCapabilities::redTextures},
    {2, GL_LUMINANCE_ALPHA, GL_LUMINANCE_ALPHA, nullptr},
    {2, GL_RG_EXT, GL_RG_EXT, &GLCapabilities::redTextures},
};

const PlaneFormat* findFormat(const TextureRequest& request, std::size_t bytesPerSample) {
  for (const PlaneFormat& candidate : kPlaneFormats) {
    if (candidate.bytesPerSample == bytesPerSample && candidate.internalFormat == request.internalFormat &&
        candidate.format == request.format && request.type == GL_UNSIGNED_BYTE) {
      return &candidate;
    }
  }
  return nullptr;
}

}  // namespace

Expected<GLTextureShape> TextureRequest::shape(const PixelLayout& layout, const GLCapabilities& capabilities) const {
  if (plane >= layout.planeCount) {
    return graphicsFailure(GraphicsStatus::invalidArgument, "plane {} does not exist: the pixel buffer has {}", plane,
                           layout.planeCount);
  }
  const PixelPlane& source = layout.planes[plane];
  if (width <= 0 || height <= 0 || static_cast<std::size_t>(width) != source.width ||
      static_cast<std::size_t>(height) != source.height) {
    return graphicsFailure(GraphicsStatus::invalidSize,
                           "a texture of {}x{} does not fit plane {} of the pixel buffer, which is {}x{}", width,
                           height, plane, source.width, source.height);
  }
  const PlaneFormat* found = findFormat(*this, source.bytesPerSample);
  if (found == nullptr) {
    return graphicsFailure(GraphicsStatus::incompatibleFormat,
                           "internal format 0x{:x}, format 0x{:x}, type 0x{:x} do not fit a plane of {} bytes a pixel",
                           internalFormat, format, type, source.bytesPerSample);
  }
  if (found->needs != nullptr && !(capabilities.*found->needs)) {
    return graphicsFailure(GraphicsStatus::incompatibleFormat, "the driver has no textures of format 0x{:x}", format);
  }
  // Both spellings of BGRA get the same storage: the one that this driver takes.
  const GLint storage = format == GL_BGRA_EXT ? capabilities.bgraInternalFormat() : internalFormat;
  return GLTextureShape{.width = width, .height = height, .internalFormat = storage, .format = format};
}

}  // namespace tavrel
