#include "Platform/Graphics/Private/DrawableTexture.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/Graphics/Private/EGLFunctions.h"
#include "Platform/Graphics/Private/GLStateKeepers.h"
#include "Platform/Graphics/Private/NativeContext.h"

namespace tavrel {
namespace {

EGLDisplay display() { return GraphicsDisplay::shared().nativeDisplay(); }

/// With a context current.
bool canShareTextures() {
  static const bool answer = [] {
    const auto* ofContext = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    return containsWord(eglQueryString(display(), EGL_EXTENSIONS), "EGL_KHR_gl_texture_2D_image") &&
           containsWord(ofContext, "GL_OES_EGL_image") && EGLFunctions::shared().hasImages();
  }();
  return answer;
}

}  // namespace

DrawableTexture::DrawableTexture(std::shared_ptr<GLSharegroup> sharegroup, GLDrawable::PixelSize size)
    : sharegroup_(std::move(sharegroup)), size_(size) {}

std::unique_ptr<DrawableTexture> DrawableTexture::create(std::shared_ptr<GLSharegroup> sharegroup,
                                                         GLDrawable::PixelSize size) {
  std::unique_ptr<DrawableTexture> created(new DrawableTexture(std::move(sharegroup), size));
  glGenTextures(1, &created->name_);
  const BoundTexture bound(created->name_);
  for (const GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
    glTexParameteri(GL_TEXTURE_2D, filter, GL_LINEAR);
  }
  for (const GLenum wrap : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T}) {
    glTexParameteri(GL_TEXTURE_2D, wrap, GL_CLAMP_TO_EDGE);
  }
  clearGLErrors();
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, size.width, size.height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
  if (glGetError() != GL_NO_ERROR) return nullptr;
  created->createImage();
  return created;
}

void DrawableTexture::createImage() {
  if (!canShareTextures()) return;
  static constexpr std::array<EGLint, 5> kAttributes = {EGL_GL_TEXTURE_LEVEL_KHR, 0, EGL_IMAGE_PRESERVED_KHR, EGL_TRUE,
                                                        EGL_NONE};
  // NOLINTNEXTLINE(performance-no-int-to-ptr): EGL takes names of GL as pointers
  auto* const buffer = reinterpret_cast<EGLClientBuffer>(static_cast<std::uintptr_t>(name_));
  image_ = EGLFunctions::shared().createImage(display(), eglGetCurrentContext(), EGL_GL_TEXTURE_2D_KHR, buffer,
                                              kAttributes.data());
}

// NOLINTBEGIN(clang-analyzer-core.CallAndMessage): there is an image only where there are the functions
DrawableTexture::~DrawableTexture() {
  sharegroup_->perform([this](NativeContext&) {
    if (image_ != EGL_NO_IMAGE_KHR) EGLFunctions::shared().destroyImage(display(), image_);
    glDeleteTextures(1, &name_);
  });
}

bool DrawableTexture::becomeRenderbufferStorage() const {
  if (image_ == EGL_NO_IMAGE_KHR) return false;
  clearGLErrors();
  EGLFunctions::shared().imageTargetRenderbufferStorage(GL_RENDERBUFFER, image_);
  return glGetError() == GL_NO_ERROR;
}
// NOLINTEND(clang-analyzer-core.CallAndMessage)

void DrawableTexture::noteRead() {
  std::erase_if(reads_, [](const GLFence& fence) { return fence.isReached(); });
  reads_.push_back(GLFence::afterCurrentCommands());
}

bool DrawableTexture::isReadByNobody() const {
  return std::all_of(reads_.begin(), reads_.end(), [](const GLFence& fence) { return fence.isReached(); });
}

void DrawableTexture::waitUntilRead() {
  for (const GLFence& fence : reads_) fence.waitOnGPU();
  reads_.clear();
}

std::unique_ptr<DrawableTexture> DrawableTexturePool::take(bool evenIfRead) {
  const std::lock_guard lock(mutex_);
  auto found = std::find_if(idle_.begin(), idle_.end(), [](const auto& texture) { return texture->isReadByNobody(); });
  if (found == idle_.end() && evenIfRead) found = idle_.begin();
  if (found == idle_.end()) return nullptr;
  std::unique_ptr<DrawableTexture> texture = std::move(*found);
  idle_.erase(found);
  return texture;
}

void DrawableTexturePool::put(std::unique_ptr<DrawableTexture> texture) {
  const std::lock_guard lock(mutex_);
  idle_.push_back(std::move(texture));
}

}  // namespace tavrel
