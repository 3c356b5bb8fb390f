#include "Platform/UI/Compositor.h"

#include <GLES2/gl2.h>
#include <fmt/format.h>

#include <cmath>
#include <utility>

#include "Platform/Graphics/GLContext.h"
#include "Platform/Graphics/GLDrawable.h"
#include "Platform/UI/DrawableLayer.h"
#include "Platform/UI/Private/LayerRenderer.h"
#include "Platform/UI/Screen.h"
#include "Platform/UI/UIStatus.h"
#include "Platform/UI/View.h"

namespace tavrel {
namespace {

/// The sharegroup of the first presented picture in the tree, which a context must join to see it.
std::shared_ptr<GLSharegroup> sharegroupOf(const Layer& layer) {
  if (const auto* drawable = dynamic_cast<const DrawableLayer*>(&layer)) {
    if (const auto frame = drawable->drawable()->latestFrame()) return frame->sharegroup();
  }
  for (const auto& sublayer : layer.sublayers()) {
    if (auto found = sharegroupOf(*sublayer)) return found;
  }
  return nullptr;
}

/// The calling thread's context for as long as the scope lives; the earlier one is current again afterwards.
class CurrentContext {
 public:
  explicit CurrentContext(GLContext& context) : previous_(GLContext::current()), isCurrent_(context.makeCurrent()) {}
  CurrentContext(const CurrentContext&) = delete;
  CurrentContext& operator=(const CurrentContext&) = delete;
  ~CurrentContext() {
    GLContext::clearCurrent();
    if (previous_) previous_->makeCurrent();
  }
  bool isCurrent() const { return isCurrent_; }

 private:
  GLContext* previous_;
  bool isCurrent_;
};

/// What is drawn into, for one picture.
class Canvas {
 public:
  Canvas(int width, int height) {
    glGenRenderbuffers(1, &renderbuffer_);
    glBindRenderbuffer(GL_RENDERBUFFER, renderbuffer_);
    glRenderbufferStorage(GL_RENDERBUFFER, kRGBA8, width, height);
    glGenFramebuffers(1, &framebuffer_);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, renderbuffer_);
  }
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;
  ~Canvas() {
    glDeleteFramebuffers(1, &framebuffer_);
    glDeleteRenderbuffers(1, &renderbuffer_);
  }
  bool isComplete() const { return glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE; }

 private:
  static constexpr GLenum kRGBA8 = 0x8058;  // GL_OES_rgb8_rgba8

  GLuint renderbuffer_ = 0;
  GLuint framebuffer_ = 0;
};

}  // namespace

struct Compositor::Implementation {
  std::shared_ptr<GLContext> context;
  std::unique_ptr<LayerRenderer> renderer;

  ~Implementation() { release(); }

  void release() {
    if (renderer) {
      const CurrentContext scope(*context);
      if (scope.isCurrent()) renderer.reset();
    }
    renderer.reset();
    context.reset();
  }

  Expected<void> join(std::shared_ptr<GLSharegroup> sharegroup) {
    if (context && (!sharegroup || context->sharegroup() == sharegroup)) return {};
    release();
    auto created = GLContext::create(std::move(sharegroup));
    if (!created) return tl::unexpected(created.error());
    context = *created;
    return {};
  }

  Expected<std::shared_ptr<Image>> draw(const Layer& root, const LayerRenderer::Target& target) {
    const CurrentContext scope(*context);
    if (!scope.isCurrent())
      return failure(UIStatus::contextUnavailable, "the compositor's GL context cannot be made current");
    if (!renderer) {
      auto created = LayerRenderer::create();
      if (!created) return tl::unexpected(created.error());
      renderer = std::move(*created);
    }
    const Canvas canvas(target.width, target.height);
    if (!canvas.isComplete()) {
      return failure(UIStatus::allocationFailed,
                     fmt::format("GL has no picture of {}×{} pixels", target.width, target.height));
    }
    renderer->draw(root, target);
    const auto width = static_cast<std::size_t>(target.width);
    const auto height = static_cast<std::size_t>(target.height);
    Data bytes(width * height * 4);
    glReadPixels(0, 0, target.width, target.height, GL_RGBA, GL_UNSIGNED_BYTE, bytes.data());
    return Image::create(width, height, 8, 32, width * 4,
                         bitmapInfo(kBitmapByteOrderDefault, AlphaInfo::premultipliedLast),
                         DataProvider::create(std::move(bytes)));
  }
};

Compositor::Compositor() : implementation_(std::make_unique<Implementation>()) {}

Compositor::~Compositor() = default;

Expected<std::shared_ptr<Image>> Compositor::imageOf(View& root, const Options& options) {
  root.layoutIfNeeded();
  LayerRenderer::Target target;
  target.scale = options.scale.value_or(Screen::main().scale());
  constexpr double kLargestSide = 16384;
  const double width = std::ceil(root.bounds().size.width * target.scale - 1e-6);
  const double height = std::ceil(root.bounds().size.height * target.scale - 1e-6);
  if (!(width >= 1 && height >= 1 && width <= kLargestSide && height <= kLargestSide)) {
    return failure(UIStatus::invalidSize,
                   fmt::format("no image can have {}×{} pixels: expected 1 to {} each", width, height, kLargestSide));
  }
  target.width = static_cast<int>(width);
  target.height = static_cast<int>(height);
  target.topRowFirst = true;
  target.time = options.time.value_or(Layer::currentTime());
  target.background = options.background;
  const auto joined = implementation_->join(sharegroupOf(*root.layer()));
  if (!joined) return tl::unexpected(joined.error());
  return implementation_->draw(*root.layer(), target);
}

}  // namespace tavrel
