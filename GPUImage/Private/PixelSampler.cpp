#include "GPUImage/Private/PixelSampler.h"

#include <string_view>

#include "Platform/Graphics/GLContext.h"
#include "Platform/Graphics/GLDriverLock.h"

namespace tavrel {
namespace {

struct Sampler {
  using Generate = void (*)(GLsizei count, GLuint* names);
  using SetParameter = void (*)(GLuint sampler, GLenum name, GLint value);
  using Bind = void (*)(GLuint unit, GLuint sampler);

  Bind bind = nullptr;
  GLuint name = 0;

  Sampler() {
    const auto* const text = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    if (!text || !std::string_view(text).starts_with("OpenGL ES 3")) return;
    const auto generate = reinterpret_cast<Generate>(GLContext::functionNamed("glGenSamplers"));
    const auto set = reinterpret_cast<SetParameter>(GLContext::functionNamed("glSamplerParameteri"));
    bind = reinterpret_cast<Bind>(GLContext::functionNamed("glBindSampler"));
    if (!generate || !set || !bind) return;
    generate(1, &name);
    set(name, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    set(name, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    set(name, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    set(name, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  }
};

const Sampler& sampler() {
  static const Sampler shared;
  return shared;
}

void bindSampler(GLuint unit, bool isOurs) {
  if (sampler().name) sampler().bind(unit, isOurs ? sampler().name : 0);
}

}  // namespace

// The driver that needs the lock is the one that draws with the processor.
bool PixelSampler::isCheap() { return sampler().name != 0 && GLDriverLock::isNeeded(); }

void PixelSampler::bind(GLuint unit) { bindSampler(unit, true); }
void PixelSampler::unbind(GLuint unit) { bindSampler(unit, false); }

}  // namespace tavrel
