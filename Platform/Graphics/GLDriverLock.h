#pragma once

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Serialises GL calls on drivers that are not thread-safe.
///
/// GL allows several threads to use contexts of one sharegroup at the same time. Mesa's software renderer (llvmpipe,
/// seen in 22.3) does not: at each draw, upload and read-back it reads lists of textures that other contexts may be
/// changing, and crashes now and then. With that driver, hold this lock to draw, clear, upload, read back, create or
/// delete objects, bind a framebuffer, flush or change the current context; with others it costs one load. The library
/// guards its own commands. Guard yours, be it in a filter's `renderToTextureWithVertices` or in a context that shares
/// with the graph.
///
/// Any thread; recursive. Never wait for another thread while holding it.
class TAVREL_API GLDriverLock {
 public:
  GLDriverLock();
  GLDriverLock(const GLDriverLock&) = delete;
  GLDriverLock& operator=(const GLDriverLock&) = delete;
  ~GLDriverLock();

  /// Whether the driver needs the lock; true before the driver was examined.
  static bool isNeeded();
  /// Examines the driver; requires a current context.
  static void examineDriver();

 private:
  const bool isHeld_;
};

}  // namespace tavrel
