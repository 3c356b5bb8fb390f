#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "Platform/Graphics/GLContext.h"
#include "Platform/Graphics/Private/GLCapabilities.h"
#include "Platform/Graphics/Private/GLTexture.h"
#include "Platform/Graphics/Private/NativeContext.h"

namespace tavrel {

/// What contexts share, anchored by a context of its own: EGL shares with a living context, so that one outlives all
/// the others, and is there for GL work when no other context is at hand. Keeps the idle textures of the texture
/// caches.
class GLSharegroup : public std::enable_shared_from_this<GLSharegroup> {
 public:
  using Work = std::function<void(NativeContext& context)>;

  /// The window system's context, where the display came with one, sees the same objects.
  static Expected<std::shared_ptr<GLSharegroup>> create();
  explicit GLSharegroup(NativeContext anchor) : anchor_(std::move(anchor)) {}

  EGLContext anchor() const { return anchor_.handle(); }

  /// True when a `GLContext` of this group is current on the calling thread.
  bool isCurrent() const;
  /// Runs `work` on the calling thread with a context of the group current: the thread's own one, else the anchor for
  /// the moment, finished afterwards and the thread's earlier context restored. False when no context could be made
  /// current.
  bool perform(const Work& work);

  /// What the driver can do; asked once. With a context of the group current.
  const GLCapabilities& capabilities();

  /// A texture with storage for `shape`, recycled or new. With a context of the group current.
  Expected<std::shared_ptr<GLTexture>> acquireTexture(const GLTextureShape& shape);
  /// Takes a texture back that nobody uses. Any thread; not under a pixel buffer's lock.
  void releaseTexture(GLuint name, const GLTextureShape& shape);
  /// Deletes idle textures that nobody can use again, and those beyond the number that is kept. With a context of the
  /// group current.
  void deleteSurplusTextures() { deleteIdleTexturesBeyond(kIdleTexturesKept); }
  /// Deletes the idle textures. With a context of the group current.
  void deleteIdleTextures();

  /// Texture caches count themselves: without one, nobody would collect idle textures any more.
  void cacheOpened();
  void cacheClosed();

 private:
  struct IdleTexture {
    GLuint name;
    GLTextureShape shape;
  };
  /// More idle textures than this are not kept, even if nobody flushes.
  static constexpr std::size_t kIdleTexturesKept = 16;

  GLuint takeIdleTexture(const GLTextureShape& shape);
  void deleteIdleTexturesBeyond(std::size_t kept);

  NativeContext anchor_;
  std::mutex anchorMutex_;
  std::once_flag capabilitiesOnce_;
  GLCapabilities capabilities_;

  std::mutex idleMutex_;
  std::vector<IdleTexture> idleTextures_;  // the oldest first
  std::vector<GLuint> uselessTextures_;    // of memory that is gone
  std::size_t openCaches_ = 0;
};

}  // namespace tavrel
