#include "GPUImage/Sources/Private/MovieFrameUpload.h"

#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {
namespace {

std::shared_ptr<TavrelGPUImageFramebuffer> wrap(const std::shared_ptr<PixelBuffer>& movieFrame) {
  TextureCache& cache = *TavrelGPUImageContext::sharedImageProcessingContext()->coreVideoTextureCache();
  const auto texture = cache.createTextureFromPixelBuffer(movieFrame);
  if (!texture) {
    ConsoleLog::write("Movie CVOpenGLESTextureCacheCreateTextureFromImage failed (error: {})", texture.error().code);
    fatalAssertion("Camera failure");
  }
  // The buffer goes back to its pool only when the last reader, perhaps on another queue, has drawn the frame.
  return std::make_shared<TavrelGPUImageFramebuffer>(*texture);
}

std::shared_ptr<TavrelGPUImageFramebuffer> copy(PixelBuffer& movieFrame, Size size,
                                                const TavrelGPUTextureOptions& options) {
  const auto framebuffer =
      TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(size, options, true);
  const std::size_t bytesPerPixel = movieFrame.width() > 0 ? movieFrame.bytesPerRow() / movieFrame.width() : 0;
  const std::size_t rowLength = bytesPerPixel > 0 ? movieFrame.bytesPerRow() / bytesPerPixel : 0;
  framebuffer->uploadPicture(static_cast<GLsizei>(rowLength), static_cast<GLsizei>(movieFrame.height()), options.format,
                             movieFrame.baseAddress());
  return framebuffer;
}

}  // namespace

std::shared_ptr<TavrelGPUImageFramebuffer> uploadMovieFrame(const std::shared_ptr<PixelBuffer>& movieFrame,
                                                            const TavrelGPUTextureOptions& options) {
  const Size size = {static_cast<double>(movieFrame->width()), static_cast<double>(movieFrame->height())};
  return TavrelGPUImageContext::supportsFastTextureUpload() ? wrap(movieFrame) : copy(*movieFrame, size, options);
}

}  // namespace tavrel
