#pragma once

#include <memory>
#include <string>

#include "GPUImage/TavrelGPUImageFramebuffer.h"

namespace tavrel {

/// Caches idle framebuffers by exact size and options, so that a running graph creates no GL objects. With the
/// environment variable `TAVREL_DEBUG=textures`, returned framebuffers are filled with magenta to reveal use after
/// return. Any thread.
class TAVREL_API TavrelGPUImageFramebufferCache {
 public:
  TavrelGPUImageFramebufferCache();
  TavrelGPUImageFramebufferCache(const TavrelGPUImageFramebufferCache&) = delete;
  TavrelGPUImageFramebufferCache& operator=(const TavrelGPUImageFramebufferCache&) = delete;
  ~TavrelGPUImageFramebufferCache();

  /// The idle framebuffer returned last, or a new one; locked once.
  std::shared_ptr<TavrelGPUImageFramebuffer> fetchFramebufferForSize(Size size,
                                                                     const TavrelGPUTextureOptions& textureOptions,
                                                                     bool onlyTexture);
  /// The same with the default options.
  std::shared_ptr<TavrelGPUImageFramebuffer> fetchFramebufferForSize(Size size, bool onlyTexture);
  /// Clears the framebuffer's locks and makes it idle, on the video-processing queue.
  void returnFramebufferToCache(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer);
  /// Releases all idle framebuffers, on the video-processing queue. Also done on memory warnings.
  void purgeAllUnassignedFramebuffers();

  /// Keeps a framebuffer alive while an image shares its bytes.
  void addFramebufferToActiveImageCaptureList(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer);
  void removeFramebufferFromActiveImageCaptureList(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer);

  /// While tracing is on, records how many framebuffers are held and idle.
  void traceOccupancy();

  /// The cache key, such as "1280.0x720.0-9729:9729:33071:33071:6408:32993:5121", with suffix "-NOFB" for texture-only
  /// framebuffers.
  std::string hashForSize(Size size, const TavrelGPUTextureOptions& textureOptions, bool onlyTexture) const;

 private:
  struct Implementation;
  // Shared with what is queued, which finds it gone when the cache is.
  std::shared_ptr<Implementation> implementation_;
};

}  // namespace tavrel
