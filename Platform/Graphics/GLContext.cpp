#include "Platform/Graphics/GLContext.h"

#include <EGL/egl.h>

#include <atomic>
#include <utility>

#include "Platform/Graphics/GLDrawable.h"
#include "Platform/Graphics/Private/DrawableStorage.h"
#include "Platform/Graphics/Private/GLSharegroup.h"
#include "Platform/Graphics/Private/NativeContext.h"

namespace tavrel {

struct GLContext::State {
  State(std::shared_ptr<GLSharegroup> group, NativeContext context)
      : sharegroup(std::move(group)), native(std::move(context)) {}

  std::shared_ptr<GLSharegroup> sharegroup;
  NativeContext native;
  std::atomic<GLContext*> owner = nullptr;
  std::atomic<bool> isCurrentSomewhere = false;
  std::shared_ptr<State> keptByThread;  // itself, while current: the thread may outlast the GLContext

  /// Trivially destructible, so that destructors that run at the very end of a thread may still ask.
  static thread_local constinit State* ofThread;
};

thread_local constinit GLContext::State* GLContext::State::ofThread = nullptr;

namespace {

/// Releases the thread's context when the thread ends; a context must never stay bound to a thread that is gone.
struct ThreadEnd {
  ~ThreadEnd() { GLContext::clearCurrent(); }
  void arm() const {}
};

thread_local const ThreadEnd threadEnd;

}  // namespace

Expected<std::shared_ptr<GLContext>> GLContext::create(std::shared_ptr<GLSharegroup> sharegroup) {
  if (sharegroup == nullptr) {
    auto created = GLSharegroup::create();
    if (!created) return tl::unexpected<Error>(created.error());
    sharegroup = std::move(*created);
  }
  auto native = NativeContext::create(sharegroup->anchor());
  if (!native) return tl::unexpected<Error>(native.error());
  auto state = std::make_shared<State>(std::move(sharegroup), std::move(*native));
  return std::shared_ptr<GLContext>(new GLContext(std::move(state)));
}

GLContext::GLContext(std::shared_ptr<State> state) : state_(std::move(state)) { state_->owner = this; }

GLContext::~GLContext() {
  state_->owner = nullptr;
  if (State::ofThread == state_.get()) clearCurrent();
}

const std::shared_ptr<GLSharegroup>& GLContext::sharegroup() const { return state_->sharegroup; }

NativeContext& GLContext::native() { return state_->native; }

bool GLContext::makeCurrent() {
  State* mine = state_.get();
  State* previous = State::ofThread;
  if (previous == mine) return true;
  if (mine->isCurrentSomewhere.exchange(true)) return false;
  if (!mine->native.makeCurrent()) {
    mine->isCurrentSomewhere = false;
    return false;
  }
  mine->keptByThread = state_;
  State::ofThread = mine;
  threadEnd.arm();
  if (previous != nullptr) {
    std::shared_ptr<State> last = std::move(previous->keptByThread);
    last->isCurrentSomewhere = false;
  }
  return true;
}

void GLContext::clearCurrent() {
  State* current = std::exchange(State::ofThread, nullptr);
  if (current == nullptr) return;
  NativeContext::clearCurrent();
  std::shared_ptr<State> last = std::move(current->keptByThread);
  last->isCurrentSomewhere = false;
}

void (*GLContext::functionNamed(const char* name))() { return eglGetProcAddress(name); }

GLContext* GLContext::current() {
  State* current = State::ofThread;
  return current != nullptr ? current->owner.load(std::memory_order_relaxed) : nullptr;
}

bool GLContext::renderbufferStorage(const std::shared_ptr<GLDrawable>& drawable) {
  GLint renderbuffer = 0;
  glGetIntegerv(GL_RENDERBUFFER_BINDING, &renderbuffer);
  storages_.erase(static_cast<GLuint>(renderbuffer));
  if (renderbuffer == 0 || !drawable) return true;
  const GLDrawable::PixelSize size = drawable->pixelSize();
  if (size.width <= 0 || size.height <= 0) return true;
  auto storage = DrawableStorage::create(sharegroup(), drawable, size);
  if (!storage) return false;
  storages_.emplace(static_cast<GLuint>(renderbuffer), std::move(storage));
  return true;
}

bool GLContext::presentRenderbuffer() {
  GLint renderbuffer = 0;
  if (!storages_.empty()) glGetIntegerv(GL_RENDERBUFFER_BINDING, &renderbuffer);
  const auto storage = storages_.find(static_cast<GLuint>(renderbuffer));
  if (storage != storages_.end()) return storage->second->present();
  return presentHandler_ && presentHandler_(*this);
}

void GLContext::setPresentHandler(PresentHandler handler) { presentHandler_ = std::move(handler); }

}  // namespace tavrel
