#pragma once

#include <memory>
#include <string>

#include "GPUImage/TavrelGPUImageFramebuffer.h"

namespace tavrel {

/// Idle framebuffers, kept by exact size and options, so that a running graph creates no GL objects. With the
/// environment variable `TAVREL_DEBUG=textures` they are filled with magenta, so that it is seen when somebody still
/// reads one. Any thread.
class TAVREL_API TavrelGPUImageFramebufferCache {
 public:
  TavrelGPUImageFramebufferCache();
  TavrelGPUImageFramebufferCache(const TavrelGPUImageFramebufferCache&) = delete;
  TavrelGPUImageFramebufferCache& operator=(const TavrelGPUImageFramebufferCache&) = delete;
  ~TavrelGPUImageFramebufferCache();

  /// An idle framebuffer, the most recently returned first, or a new one; locked once.
  std::shared_ptr<TavrelGPUImageFramebuffer> fetchFramebufferForSize(Size size,
                                                                     const TavrelGPUTextureOptions& textureOptions,
                                                                     bool onlyTexture);
  /// The same with the default options.
  std::shared_ptr<TavrelGPUImageFramebuffer> fetchFramebufferForSize(Size size, bool onlyTexture);
  /// Clears the framebuffer's locks and, on the video-processing queue, makes it idle.
  void returnFramebufferToCache(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer);
  /// Forgets every idle framebuffer, on the video-processing queue. Also done on every memory warning.
  void purgeAllUnassignedFramebuffers();

  /// Keeps a framebuffer alive while an image made from its bytes exists.
  void addFramebufferToActiveImageCaptureList(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer);
  void removeFramebufferFromActiveImageCaptureList(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer);

  /// Records how many framebuffers are held and idle, while tracing is on. Any thread.
  void traceOccupancy();

  /// The key under which framebuffers are shared, such as "1280.0x720.0-9729:9729:33071:33071:6408:32993:5121", with
  /// "-NOFB" behind it for texture-only ones.
  std::string hashForSize(Size size, const TavrelGPUTextureOptions& textureOptions, bool onlyTexture) const;

 private:
  struct Implementation;

  // Shared with what is queued, which finds it gone when the cache is.
  std::shared_ptr<Implementation> implementation_;
};

}  // namespace tavrel
