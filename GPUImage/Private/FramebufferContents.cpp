#include "GPUImage/Private/FramebufferContents.h"

#include <GLES2/gl2ext.h>

#include <array>
#include <utility>

#include "GPUImage/Private/FramebufferImplementation.h"
#include "GPUImage/Private/Rehearsal.h"
#include "GPUImage/TavrelGPUImageContext.h"

namespace tavrel {

void FramebufferContents::defer(TavrelGPUImageFramebuffer& framebuffer, PendingDrawing drawing) {
  auto& state = *framebuffer.implementation_;
  state.pending = std::make_unique<PendingDrawing>(std::move(drawing));
  state.isPendingAccepted = false;
  state.visibleArea.reset();
}

bool FramebufferContents::isPending(const TavrelGPUImageFramebuffer& framebuffer) {
  return framebuffer.implementation_->pending != nullptr;
}

void FramebufferContents::draw(TavrelGPUImageFramebuffer& framebuffer) {
  const std::unique_ptr<PendingDrawing> drawing = std::move(framebuffer.implementation_->pending);
  if (!drawing) return;
  if (Rehearsal* const rehearsal = Rehearsal::current()) return rehearsal->meet(std::move(*drawing));
  TavrelGPUImageContext::useImageProcessingContext();
  const auto program = TavrelGPUImageContext::sharedImageProcessingContext()->currentShaderProgram();
  GLint used = 0;
  std::array<GLint, 4> viewport{};
  glGetIntegerv(GL_FRAMEBUFFER_BINDING, &used);
  glGetIntegerv(GL_VIEWPORT, viewport.data());
  framebuffer.activateFramebuffer();
  drawing->draw();
  glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(used));
  glViewport(viewport[0], viewport[1], viewport[2], viewport[3]);
  if (program) TavrelGPUImageContext::setActiveShaderProgram(program);
}

std::optional<PendingDrawing> FramebufferContents::take(TavrelGPUImageFramebuffer& framebuffer) {
  auto& state = *framebuffer.implementation_;
  if (!state.pending || state.framebufferReferenceCount > 1) return std::nullopt;
  const auto taken = std::move(state.pending);
  return std::move(*taken);
}

void FramebufferContents::discard(TavrelGPUImageFramebuffer& framebuffer) {
  const auto ended = std::move(framebuffer.implementation_->pending);
}

void FramebufferContents::noteNewUse(TavrelGPUImageFramebuffer& framebuffer) {
  framebuffer.implementation_->isSamplingStale = true;
}

void FramebufferContents::accept(const TavrelGPUImageFramebuffer& framebuffer) {
  framebuffer.implementation_->isPendingAccepted = true;
}

void FramebufferContents::drawUnlessAccepted(TavrelGPUImageFramebuffer& framebuffer) {
  if (isPending(framebuffer) && !framebuffer.implementation_->isPendingAccepted) draw(framebuffer);
}

std::shared_ptr<PixelBuffer> FramebufferContents::finalPicture(const TavrelGPUImageFramebuffer& framebuffer) {
  const auto& state = *framebuffer.implementation_;
  return state.isFinal && state.textureOwner ? state.textureOwner->pixelBuffer() : nullptr;
}

void FramebufferContents::setFinal(TavrelGPUImageFramebuffer& framebuffer) {
  framebuffer.implementation_->isFinal = true;
}

void FramebufferContents::describe(const TavrelGPUImageFramebuffer& framebuffer, PrecompiledProgram::Texture& texture) {
  const auto& state = *framebuffer.implementation_;
  const TavrelGPUTextureOptions& options = state.textureOptions;
  const GLenum format = state.renderTarget || state.textureOwner ? GL_BGRA_EXT
                        : state.uploadFormat != 0                ? state.uploadFormat
                                                                 : options.format;
  const auto internalFormat = TextureCache::internalFormat(static_cast<GLint>(options.internalFormat), format);
  texture.width = static_cast<GLint>(state.size.width);
  texture.height = static_cast<GLint>(state.size.height);
  texture.pixels = {.internalFormat = static_cast<GLenum>(internalFormat), .format = format, .type = options.type};
}

std::optional<Rect> FramebufferContents::visibleArea(const TavrelGPUImageFramebuffer& framebuffer) {
  return framebuffer.implementation_->visibleArea;
}

void FramebufferContents::setVisibleArea(TavrelGPUImageFramebuffer& framebuffer, const Rect& area) {
  framebuffer.implementation_->visibleArea = area;
}

}  // namespace tavrel
