#include "GPUImage/Sources/Private/MovieFrameUpload.h"

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include <utility>

#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {
namespace {

std::shared_ptr<TavrelGPUImageFramebuffer> wrap(const std::shared_ptr<PixelBuffer>& movieFrame, Size size) {
  TextureCache& cache = *TavrelGPUImageContext::sharedImageProcessingContext()->coreVideoTextureCache();
  auto texture =
      cache.createTextureFromPixelBuffer(movieFrame, GL_RGBA, static_cast<GLsizei>(size.width),
                                         static_cast<GLsizei>(size.height), GL_BGRA_EXT, GL_UNSIGNED_BYTE, 0);
  if (!texture) {
    ConsoleLog::write("Movie CVOpenGLESTextureCacheCreateTextureFromImage failed (error: {})", texture.error().code);
    fatalAssertion("Camera failure");
  }
  const GLuint name = (*texture)->name();
  glActiveTexture(GL_TEXTURE4);
  glBindTexture(GL_TEXTURE_2D, name);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  // The buffer goes back to its pool only when the last reader, perhaps on another queue, has drawn the frame.
  auto owner = std::make_shared<std::pair<std::shared_ptr<PixelBuffer>, std::shared_ptr<TextureCacheTexture>>>(
      movieFrame, std::move(*texture));
  return std::make_shared<TavrelGPUImageFramebuffer>(size, name, std::move(owner));
}

std::shared_ptr<TavrelGPUImageFramebuffer> copy(PixelBuffer& movieFrame, Size size,
                                                const TavrelGPUTextureOptions& options) {
  const auto framebuffer =
      TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(size, options, true);
  const std::size_t bytesPerPixel = movieFrame.width() > 0 ? movieFrame.bytesPerRow() / movieFrame.width() : 0;
  const std::size_t rowLength = bytesPerPixel > 0 ? movieFrame.bytesPerRow() / bytesPerPixel : 0;
  glActiveTexture(GL_TEXTURE4);
  glBindTexture(GL_TEXTURE_2D, framebuffer->texture());
  glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(options.internalFormat), static_cast<GLsizei>(rowLength),
               static_cast<GLsizei>(movieFrame.height()), 0, options.format, options.type, movieFrame.baseAddress());
  return framebuffer;
}

}  // namespace

std::shared_ptr<TavrelGPUImageFramebuffer> uploadMovieFrame(const std::shared_ptr<PixelBuffer>& movieFrame,
                                                            const TavrelGPUTextureOptions& options) {
  const Size size = {static_cast<double>(movieFrame->width()), static_cast<double>(movieFrame->height())};
  return TavrelGPUImageContext::supportsFastTextureUpload() ? wrap(movieFrame, size) : copy(*movieFrame, size, options);
}

}  // namespace tavrel
