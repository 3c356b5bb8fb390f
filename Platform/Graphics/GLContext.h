#pragma once

#include <functional>
#include <map>
#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Contexts of one sharegroup see the same textures, buffers, renderbuffers and programs (not framebuffer objects). It
/// lives, and can be joined by new contexts, as long as anybody holds it, also when all its contexts are gone.
class GLSharegroup;
class GLDrawable;
class DrawableStorage;
class NativeContext;

/// An OpenGL ES 2.0 context without a surface, on EGL (`GraphicsDisplay`).
///
/// Any thread may create and destroy one. It can be current on one thread at a time; a thread that ends releases its
/// context by itself. While a thread draws with a context through this class, nothing else may switch EGL contexts on
/// that thread without calling `clearCurrent` before.
class TAVREL_API GLContext {
 public:
  /// Presents the renderbuffer bound to GL_RENDERBUFFER, on the context's thread; returns whether it was shown.
  using PresentHandler = std::function<bool(GLContext& context)>;

  /// Creates a context in `sharegroup`; nullptr makes a new one. Fails where there is no display or the driver refuses.
  static Expected<std::shared_ptr<GLContext>> create(std::shared_ptr<GLSharegroup> sharegroup = nullptr);

  GLContext(const GLContext&) = delete;
  GLContext& operator=(const GLContext&) = delete;
  /// Releases the context first if it is current on the calling thread. If it is current on another one, the driver's
  /// object lives until that thread lets go of it.
  ~GLContext();

  const std::shared_ptr<GLSharegroup>& sharegroup() const;

  /// Makes the context current on the calling thread, in place of any other. False, with the thread's context
  /// unchanged, when it is current on another thread or the driver refuses. Costs nothing when it is current already.
  bool makeCurrent();
  /// Leaves the calling thread without a context.
  static void clearCurrent();
  /// The calling thread's context, or nullptr. A thread-local read without an EGL call.
  static GLContext* current();
  /// The entry point of an extension's function, for a driver that lists the extension; nullptr for an unknown name.
  static void (*functionNamed(const char* name))();

  /// Gives the renderbuffer bound to GL_RENDERBUFFER the storage of `drawable`, in its pixel size of this moment;
  /// nullptr, or a size without pixels, ends that. Do so before the renderbuffer is deleted. False when GL has no
  /// memory. With the context current.
  bool renderbufferStorage(const std::shared_ptr<GLDrawable>& drawable);
  /// Hands the picture in the bound renderbuffer to its drawable and gives the renderbuffer other storage, whose
  /// contents are undefined. Never waits for whoever shows it. A renderbuffer without a drawable is presented through
  /// the handler. False without either: there is nothing to show it on.
  bool presentRenderbuffer();
  /// Installs what `presentRenderbuffer` calls; an empty handler removes it. On the context's thread.
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
