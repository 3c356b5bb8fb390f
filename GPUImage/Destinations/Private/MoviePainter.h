#pragma once

#include <GLES2/gl2.h>

#include <atomic>
#include <functional>
#include <memory>

#include "GPUImage/Filters/Private/InputScaling.h"
#include "GPUImage/Private/QuadProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageRotationMode.h"

namespace tavrel {

class PixelBuffer;
class PixelBufferPool;
class TavrelGPUImageFramebuffer;

/// Draws frames of the graph into pixel buffers of a movie's size, with a GL context of its own that shares textures
/// with the graph. That context's queue is the *writer queue*.
///
///     without GL ──prepare──▶ ready ──the first drawing──▶ with a target to draw into, kept to the end
///
/// Drawing belongs to the writer queue; the rest may be called on any thread.
class MoviePainter {
 public:
  explicit MoviePainter(Size videoSize);
  MoviePainter(const MoviePainter&) = delete;
  MoviePainter& operator=(const MoviePainter&) = delete;
  ~MoviePainter();

  /// Makes the GL context and the program. Fails ("graphics") when there can be no context.
  Expected<void> prepare();
  const std::shared_ptr<TavrelGPUImageContext>& movieWriterContext() const { return movieWriterContext_; }
  /// Runs `block` on the writer queue and returns after it.
  void runOnWriterQueue(const std::function<void()>& block) const;

  Size videoSize() const { return videoSize_; }
  /// How frames are turned.
  void setInputRotation(TavrelGPUImageRotationMode newValue) { inputRotation_ = newValue; }

  /// What to draw instead of a frame: where the movie is much smaller or larger, the frame at its size. On the
  /// video-processing queue.
  TavrelGPUImageFramebufferLease scaled(TavrelGPUImageFramebufferLease frame);
  /// The framebuffer's own pixel buffer, where drawing it would make the same picture; else nullptr.
  std::shared_ptr<PixelBuffer> readyPixelBuffer(const TavrelGPUImageFramebuffer& framebuffer) const;
  /// Draws the frame. False when there is nothing to draw into.
  bool renderAtInternalSizeUsingFramebuffer(const TavrelGPUImageFramebuffer& framebuffer, PixelBufferPool& pool);
  /// What was drawn last; nullptr when the pool gives no buffer to read it into.
  std::shared_ptr<PixelBuffer> drawnPixelBuffer(PixelBufferPool& pool) const;

 private:
  bool setFilterFBO(PixelBufferPool& pool);
  bool createDataFBO(PixelBufferPool& pool);
  bool attachRenderTarget(PixelBufferPool& pool);
  void attachRenderbuffer();
  void destroyDataFBO();
  GLsizei width() const { return static_cast<GLsizei>(videoSize_.width); }
  GLsizei height() const { return static_cast<GLsizei>(videoSize_.height); }

  const Size videoSize_;
  std::atomic<TavrelGPUImageRotationMode> inputRotation_ = kTavrelGPUImageNoRotation;
  InputScaling scaling_;  // of the video-processing queue
  const std::shared_ptr<TavrelGPUImageContext> movieWriterContext_;
  QuadProgram colorSwizzlingProgram_;
  QuadProgram ditheringProgram_;  // made for the first deep frame
  GLuint movieFramebuffer_ = 0;
  GLuint movieRenderbuffer_ = 0;
  std::shared_ptr<PixelBuffer> renderTarget_;
  std::shared_ptr<TextureCacheTexture> renderTexture_;
};

}  // namespace tavrel
