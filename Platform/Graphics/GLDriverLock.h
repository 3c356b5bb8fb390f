#pragma once

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Keeps other threads out of the GL driver, where the driver needs that.
///
/// Contexts of one sharegroup may be used by several threads at the same time, says GL. Mesa's software renderer
/// (llvmpipe; seen in 22.3) looks, at each draw, upload and read-back of one context, through the lists of textures
/// that its other contexts are just changing, and crashes now and then. There, whoever draws, clears, uploads, reads
/// back, creates or deletes objects, binds a framebuffer, flushes or changes the current context holds this lock; with
/// other drivers it costs a load. The library's own commands are guarded. Those of an application (in a filter's
/// `renderToTextureWithVertices`, or in a context that shares with the graph's) need a lock around them.
///
/// Any thread, also in calls nested in one another. Never wait for another thread while holding it.
class TAVREL_API GLDriverLock {
 public:
  GLDriverLock();
  GLDriverLock(const GLDriverLock&) = delete;
  GLDriverLock& operator=(const GLDriverLock&) = delete;
  ~GLDriverLock();

  /// Whether the driver needs it; also true before the process's first context is current.
  static bool isNeeded();
  /// Finds that out, with a context current.
  static void examineDriver();

 private:
  const bool isHeld_;
};

}  // namespace tavrel
