#pragma once

#include <memory>

namespace tavrel {

class PixelBuffer;
class TavrelGPUImageFramebuffer;
struct TavrelGPUTextureOptions;

/// A picture of a movie as a framebuffer: around the very same memory on the fast path, which must not be written to
/// before the last reader has let go of it; else copied into one from the shared cache. The caller holds the pixel
/// buffer's lock. A fast path without a texture, for a format other than 'BGRA' say, stops the program. On the
/// video-processing queue.
std::shared_ptr<TavrelGPUImageFramebuffer> uploadMovieFrame(const std::shared_ptr<PixelBuffer>& movieFrame,
                                                            const TavrelGPUTextureOptions& options);

}  // namespace tavrel
