#pragma once

#include <GLES2/gl2.h>

namespace tavrel {

/// Makes a texture unit give single pixels, whatever the filters of the texture are, and the outermost ones outside of
/// it. Where what is drawn shows pixel for pixel, this is the same picture at a fraction of the cost. Without sampler
/// objects (OpenGL ES 3) it does nothing. On the video-processing queue, with the shared context current.
class PixelSampler {
 public:
  /// Whether two samples of single pixels cost no more than a linear one between them, as they do where processors
  /// draw.
  static bool isCheap();
  static void bind(GLuint unit);
  static void unbind(GLuint unit);
};

}  // namespace tavrel
