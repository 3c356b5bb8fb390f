#include "Platform/Graphics/Private/GLSharegroup.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/Graphics/Private/TransferCounters.h"

namespace tavrel {
namespace {

/// The EGL context of the calling thread, to be put back.
class CurrentContextKeeper {
 public:
  CurrentContextKeeper()
      : display_(eglGetCurrentDisplay()),
        context_(eglGetCurrentContext()),
        draw_(eglGetCurrentSurface(EGL_DRAW)),
        read_(eglGetCurrentSurface(EGL_READ)) {}
  CurrentContextKeeper(const CurrentContextKeeper&) = delete;
  CurrentContextKeeper& operator=(const CurrentContextKeeper&) = delete;
  ~CurrentContextKeeper() {
    if (context_ == EGL_NO_CONTEXT) {
      NativeContext::clearCurrent();
    } else {
      eglMakeCurrent(display_, draw_, read_, context_);
    }
  }

 private:
  EGLDisplay display_;
  EGLContext context_;
  EGLSurface draw_;
  EGLSurface read_;
};

}  // namespace

Expected<std::shared_ptr<GLSharegroup>> GLSharegroup::create() {
  auto anchor = NativeContext::create(GraphicsDisplay::shared().nativeShareContext());
  if (!anchor) return tl::unexpected<Error>(anchor.error());
  return std::make_shared<GLSharegroup>(std::move(*anchor));
}

bool GLSharegroup::isCurrent() const {
  GLContext* current = GLContext::current();
  return current != nullptr && current->sharegroup().get() == this;
}

bool GLSharegroup::perform(const Work& work) {
  if (eglGetCurrentContext() == anchor_.handle()) {
    work(anchor_);
    return true;
  }
  // Another library may have switched contexts behind GLContext's back, so what counts here is EGL's own word.
  if (isCurrent()) {
    NativeContext& native = GLContext::current()->native();
    if (eglGetCurrentContext() == native.handle()) {
      work(native);
      return true;
    }
  }
  std::lock_guard guard(anchorMutex_);
  CurrentContextKeeper keeper;
  if (!anchor_.makeCurrent()) return false;
  work(anchor_);
  glFinish();
  return true;
}

const GLCapabilities& GLSharegroup::capabilities() {
  std::call_once(capabilitiesOnce_, [this] { capabilities_ = GLCapabilities::probe(); });
  return capabilities_;
}

GLuint GLSharegroup::takeIdleTexture(const GLTextureShape& shape) {
  std::lock_guard guard(idleMutex_);
  auto found = std::find_if(idleTextures_.rbegin(), idleTextures_.rend(),
                            [&](const IdleTexture& idle) { return idle.shape == shape; });
  if (found == idleTextures_.rend()) return 0;
  const GLuint name = found->name;
  idleTextures_.erase(std::next(found).base());
  return name;
}

Expected<std::shared_ptr<GLTexture>> GLSharegroup::acquireTexture(const GLTextureShape& shape) {
  GLuint name = takeIdleTexture(shape);
  if (name != 0) {
    setDefaultTextureParameters(name);
    return std::make_shared<GLTexture>(shared_from_this(), name, shape);
  }
  deleteSurplusTextures();
  auto created = createTextureStorage(shape);
  if (!created) return tl::unexpected<Error>(created.error());
  return std::make_shared<GLTexture>(shared_from_this(), *created, shape);
}

void GLSharegroup::releaseTexture(GLuint name, const GLTextureShape& shape) {
  bool deleteNow = false;
  {
    std::lock_guard guard(idleMutex_);
    if (shape.isImported) {
      uselessTextures_.push_back(name);
    } else {
      idleTextures_.push_back({name, shape});
    }
    deleteNow = openCaches_ == 0;
  }
  if (deleteNow) {
    perform([this](NativeContext&) { deleteIdleTextures(); });
  } else if (shape.isImported && isCurrent()) {
    deleteSurplusTextures();
  }
}

void GLSharegroup::deleteIdleTextures() { deleteIdleTexturesBeyond(0); }

void GLSharegroup::deleteIdleTexturesBeyond(std::size_t kept) {
  std::vector<GLuint> names;
  {
    std::lock_guard guard(idleMutex_);
    names.swap(uselessTextures_);
    const auto end = idleTextures_.end() - static_cast<std::ptrdiff_t>(std::min(kept, idleTextures_.size()));
    std::transform(idleTextures_.begin(), end, std::back_inserter(names), [](const auto& idle) { return idle.name; });
    idleTextures_.erase(idleTextures_.begin(), end);
  }
  if (names.empty()) return;
  glDeleteTextures(static_cast<GLsizei>(names.size()), names.data());
  TransferCounters::shared().texturesDeleted += names.size();
}

void GLSharegroup::cacheOpened() {
  std::lock_guard guard(idleMutex_);
  ++openCaches_;
}

void GLSharegroup::cacheClosed() {
  {
    std::lock_guard guard(idleMutex_);
    if (--openCaches_ > 0 || (idleTextures_.empty() && uselessTextures_.empty())) return;
  }
  perform([this](NativeContext&) { deleteIdleTextures(); });
}

}  // namespace tavrel
