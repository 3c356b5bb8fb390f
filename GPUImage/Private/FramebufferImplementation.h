#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "GPUImage/Private/PendingDrawing.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"

namespace tavrel {

struct TavrelGPUImageFramebuffer::Implementation {
  const Size size;
  const TavrelGPUTextureOptions textureOptions = {};
  const bool missingFramebuffer = false;
  const bool isTextureBorrowed = false;
  std::shared_ptr<TextureCacheTexture> textureOwner = nullptr;
  bool isFinal = false;
  GLuint texture = 0;
  GLuint framebuffer = 0;
  std::atomic<std::int64_t> framebufferReferenceCount = 0;
  std::atomic<bool> referenceCountingDisabled = false;
  std::atomic<std::int64_t> ownersLocks = 0;  // those from before counting was disabled, which no reader ends
  std::shared_ptr<PixelBuffer> renderTarget = nullptr;
  std::shared_ptr<TextureCacheTexture> renderTexture = nullptr;

  std::uint64_t uploadNumber = 0;
  GLenum uploadFormat = 0;
  std::atomic<std::uint64_t> readLockCount = 0;

  // Images let go of their bytes on any thread.
  std::mutex holdsMutex = {};
  std::vector<std::shared_ptr<PixelBuffer>> renderTargetHolds = {};

  // On the video-processing queue; see FramebufferContents.
  std::unique_ptr<PendingDrawing> pending = nullptr;
  bool isPendingAccepted = false;
  bool isSamplingStale = false;
  std::optional<Rect> visibleArea = std::nullopt;
};

}  // namespace tavrel
