#pragma once

#include <functional>
#include <map>
#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Contexts that share textures, buffers, renderbuffers and programs, but not framebuffer objects. A sharegroup may
/// outlive its contexts and take new ones.
class GLSharegroup;
class GLDrawable;
class DrawableStorage;
class NativeContext;

/// A surfaceless OpenGL ES 2.0 context, on EGL (`GraphicsDisplay`).
///
/// Created and destroyed on any thread, and current on at most one; a thread that ends releases its context. Code that
/// switches EGL contexts by other means must call `clearCurrent` first.
class TAVREL_API GLContext {
 public:
  /// Presents the renderbuffer bound to GL_RENDERBUFFER, on the context's thread. Returns whether it was shown.
  using PresentHandler = std::function<bool(GLContext& context)>;

  /// Creates a context in `sharegroup`, or in a new one for nullptr. Fails (`GraphicsStatus`) without a display or if
  /// the driver refuses.
  static Expected<std::shared_ptr<GLContext>> create(std::shared_ptr<GLSharegroup> sharegroup = nullptr);

  GLContext(const GLContext&) = delete;
  GLContext& operator=(const GLContext&) = delete;
  /// Releases the context if it is current on the calling thread. If it is current on another thread, the EGL context
  /// lives until that thread releases it.
  ~GLContext();

  const std::shared_ptr<GLSharegroup>& sharegroup() const;

  /// Makes the context current on the calling thread, replacing any other. False, with the thread's context unchanged,
  /// if it is current on another thread or the driver refuses. Cheap if it is current already.
  bool makeCurrent();
  /// Releases the calling thread's context.
  static void clearCurrent();
  /// The calling thread's context, or nullptr. Makes no EGL call.
  static GLContext* current();
  /// The entry point of an extension's function; nullptr for an unknown name. Call it only if the driver lists the
  /// extension.
  static void (*functionNamed(const char* name))();

  /// Attaches storage of `drawable`'s current pixel size to the renderbuffer bound to GL_RENDERBUFFER. nullptr or an
  /// empty size detaches it, which must be done before the renderbuffer is deleted. False if GL is out of memory. The
  /// context must be current.
  bool renderbufferStorage(const std::shared_ptr<GLDrawable>& drawable);
  /// Hands the contents of the bound renderbuffer to its drawable and gives the renderbuffer other storage with
  /// undefined contents. Never waits for the consumer. Without a drawable the handler presents; without either, returns
  /// false.
  bool presentRenderbuffer();
  /// The handler of `presentRenderbuffer`; an empty one removes it. On the context's thread.
  void setPresentHandler(PresentHandler handler);

 private:
  friend class GLSharegroup;
  struct State;

  explicit GLContext(std::shared_ptr<State> state);
  NativeContext& native();

  std::shared_ptr<State> state_;
  PresentHandler presentHandler_;
  std::map<unsigned, std::unique_ptr<DrawableStorage>> storages_;  // by renderbuffer
};

}  // namespace tavrel
