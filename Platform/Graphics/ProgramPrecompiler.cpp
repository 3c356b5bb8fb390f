#include "Platform/Graphics/ProgramPrecompiler.h"

#include <EGL/egl.h>
#include <GLES2/gl2ext.h>

#include <array>
#include <chrono>
#include <thread>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/Graphics/Private/GraphicsDevice.h"

namespace tavrel {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience(5);
/// In which drivers write their cache, on threads of their own.
constexpr std::chrono::milliseconds kWriting(30);

/// Straight to the driver: nothing here is shared with the graph, which would wait for the driver's lock.
template <typename Function>
Function* entry(const char* name) {
  return reinterpret_cast<Function*>(eglGetProcAddress(name));
}

struct Commands {
#define TAVREL_COMMAND(name) decltype(::name)* const name = entry<decltype(::name)>(#name)
  TAVREL_COMMAND(glCreateProgram);
  TAVREL_COMMAND(glCreateShader);
  TAVREL_COMMAND(glGenTextures);
  TAVREL_COMMAND(glGenFramebuffers);
  TAVREL_COMMAND(glBindFramebuffer);
  TAVREL_COMMAND(glTexImage2D);
  TAVREL_COMMAND(glDrawArrays);
  TAVREL_COMMAND(glFinish);
#undef TAVREL_COMMAND
};

/// A display that nobody else draws with, kept for good: others may have opened it, too.
EGLDisplay ownDisplay() {
  static EGLDisplay const display = [] {
    const EGLDisplay graphs = GraphicsDisplay::shared().nativeDisplay();
    const GraphicsDevice used = GraphicsDevice::ofDisplay(graphs);
    for (const GraphicsDevice& device : GraphicsDevice::all()) {
      if (device.isSoftware != (used.isSoftware || !used.handle)) continue;
      const EGLDisplay opened = device.open();
      if (opened != EGL_NO_DISPLAY && opened != graphs) return opened;
    }
    return static_cast<EGLDisplay>(EGL_NO_DISPLAY);
  }();
  return display;
}

class Workshop {
 public:
  Workshop() {
    if (display_ == EGL_NO_DISPLAY || eglBindAPI(EGL_OPENGL_ES_API) == EGL_FALSE) return;
    constexpr std::array<EGLint, 3> kVersion = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    constexpr EGLConfig kNoConfig = nullptr;
    context_ = eglCreateContext(display_, kNoConfig, EGL_NO_CONTEXT, kVersion.data());
    isReady_ = context_ != EGL_NO_CONTEXT &&
               eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context_) == EGL_TRUE &&
               ProgramPrecompiler::isPossible();
  }
  Workshop(const Workshop&) = delete;
  Workshop& operator=(const Workshop&) = delete;
  ~Workshop() {
    if (context_ == EGL_NO_CONTEXT) return;
    eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(display_, context_);
    eglReleaseThread();
  }

  bool isReady() const { return isReady_; }

  void bindTarget(const PrecompiledProgram::Pixels& pixels) const {
    GLuint framebuffer = 0;
    gl_.glGenFramebuffers(1, &framebuffer);
    gl_.glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    const GLuint texture = makeTexture({.width = 16, .height = 16, .pixels = pixels});
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    glViewport(0, 0, 1, 1);
  }

  void draw(const PrecompiledProgram& description) const {
    const GLuint program = gl_.glCreateProgram();
    for (const auto& [type, text] : {std::pair(GL_VERTEX_SHADER, &description.vertexShader),
                                     std::pair(GL_FRAGMENT_SHADER, &description.fragmentShader)}) {
      const GLuint shader = gl_.glCreateShader(static_cast<GLenum>(type));
      const char* const source = text->c_str();
      glShaderSource(shader, 1, &source, nullptr);
      glCompileShader(shader);
      glAttachShader(program, shader);
    }
    for (const auto& [name, location] : description.attributes) glBindAttribLocation(program, location, name.c_str());
    glLinkProgram(program);
    GLint isLinked = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &isLinked);
    if (isLinked == GL_FALSE) return;
    glUseProgram(program);
    for (std::size_t unit = 0; unit < description.textures.size(); ++unit) {
      const PrecompiledProgram::Texture& texture = description.textures[unit];
      glActiveTexture(static_cast<GLenum>(GL_TEXTURE0 + unit));
      makeTexture(texture);
      glUniform1i(glGetUniformLocation(program, texture.sampler.c_str()), static_cast<GLint>(unit));
    }
    static constexpr std::array<GLfloat, 8> kCorners = {-1, -1, 1, -1, -1, 1, 1, 1};
    for (const auto& [name, location] : description.attributes) {
      glEnableVertexAttribArray(location);
      glVertexAttribPointer(location, 2, GL_FLOAT, GL_FALSE, 0, kCorners.data());
    }
    gl_.glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    gl_.glFinish();
    for (const auto& [name, location] : description.attributes) glDisableVertexAttribArray(location);
  }

 private:
  GLuint makeTexture(const PrecompiledProgram::Texture& texture) const {
    const auto similar = [](GLint length) { return (length & (length - 1)) == 0 ? 16 : 24; };
    GLuint name = 0;
    gl_.glGenTextures(1, &name);
    glBindTexture(GL_TEXTURE_2D, name);
    const GLint filter = texture.givesSinglePixels ? GL_NEAREST : GL_LINEAR;
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    gl_.glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(texture.pixels.internalFormat), similar(texture.width),
                     similar(texture.height), 0, texture.pixels.format, texture.pixels.type, nullptr);
    return name;
  }

  const Commands gl_;
  const EGLDisplay display_ = ownDisplay();
  EGLContext context_ = EGL_NO_CONTEXT;
  bool isReady_ = false;
};

}  // namespace

bool ProgramPrecompiler::isPossible() {
  // Drivers of Mesa hand out binaries where they keep them on disk.
  GLint formats = 0;
  glGetIntegerv(GL_NUM_PROGRAM_BINARY_FORMATS_OES, &formats);
  return formats > 0;
}

void ProgramPrecompiler::compile(std::span<const PrecompiledProgram> programs,
                                 const PrecompiledProgram::Pixels& target) {
  if (programs.empty()) return;
  const auto queue = DispatchQueue::create("org.tavrel.programPrecompiler",
                                           {.qualityOfService = QualityOfService::utility, .usesDriver = true});
  queue->sync([&] {
    const Clock::time_point start = Clock::now();
    const Workshop workshop;
    if (!workshop.isReady()) return;
    workshop.bindTarget(target);
    for (const PrecompiledProgram& program : programs) {
      if (Clock::now() - start < kPatience) workshop.draw(program);
    }
  });
  std::this_thread::sleep_for(kWriting);
}

}  // namespace tavrel
