#pragma once

#include <optional>

#include "GPUImage/Private/PendingDrawing.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"

namespace tavrel {

/// What is in a framebuffer, beyond what applications can ask for: it may be pending, which whoever uses its texture or
/// its bytes ends unknowingly.
///
///     filled ──defer──▶ pending ──draw (once)──▶ filled
///                          └──take, discard: nothing is in it
///
/// Only the node that receives a framebuffer from its producer meets a pending one, and only if it accepts it when it
/// is given it. On the video-processing queue.
class FramebufferContents {
 public:
  /// The framebuffer, whose size is the drawing's, will show it.
  static void defer(TavrelGPUImageFramebuffer& framebuffer, PendingDrawing drawing);
  static bool isPending(const TavrelGPUImageFramebuffer& framebuffer);
  /// Makes a pending framebuffer a filled one; what GL has in use stays so, but for textures and vertex attributes.
  static void draw(TavrelGPUImageFramebuffer& framebuffer);
  /// Takes the drawing over from a framebuffer that nobody else holds; nothing if it is filled or held.
  static std::optional<PendingDrawing> take(TavrelGPUImageFramebuffer& framebuffer);
  static void discard(TavrelGPUImageFramebuffer& framebuffer);
  /// It was fetched from the cache: its sampling is that of its options again, once it is drawn or read.
  static void noteNewUse(TavrelGPUImageFramebuffer& framebuffer);

  /// Called by the receiver of a framebuffer while it is given it: it may stay pending.
  static void accept(const TavrelGPUImageFramebuffer& framebuffer);
  /// Called by the producer after that.
  static void drawUnlessAccepted(TavrelGPUImageFramebuffer& framebuffer);

  /// A pixel buffer that is wrapped and that nobody changes any more; none before `setFinal`.
  static std::shared_ptr<PixelBuffer> finalPicture(const TavrelGPUImageFramebuffer& framebuffer);
  static void setFinal(TavrelGPUImageFramebuffer& framebuffer);

  /// Its size, and how its pixels are stored.
  static void describe(const TavrelGPUImageFramebuffer& framebuffer, PrecompiledProgram::Texture& texture);
  /// Where it is not transparent, in pixels; if absent, anywhere. Lasts until it is drawn into again.
  static std::optional<Rect> visibleArea(const TavrelGPUImageFramebuffer& framebuffer);
  static void setVisibleArea(TavrelGPUImageFramebuffer& framebuffer, const Rect& area);
};

}  // namespace tavrel
