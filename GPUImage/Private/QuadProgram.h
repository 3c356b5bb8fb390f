#pragma once

#include <GLES2/gl2.h>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <set>
#include <string_view>

#include "Platform/Foundation/Geometry.h"
#include "Platform/Graphics/ProgramPrecompiler.h"

namespace tavrel {

class TavrelGLProgram;
class TavrelGPUImageContext;
class TavrelGPUImageFramebuffer;

/// A texture that a quad shows.
struct QuadTexture {
  QuadTexture() = default;
  /// None without a framebuffer.
  explicit QuadTexture(const TavrelGPUImageFramebuffer* framebuffer);

  GLuint name = 0;
  Size size = {1, 1};  ///< in pixels
  const TavrelGPUImageFramebuffer* framebuffer = nullptr;
  bool isDeep = false;
};

/// A linked program that draws a quad of up to two textures.
///
/// Its corners are the attribute "position". Texture 0 is the sampler "inputImageTexture" at the coordinates
/// "inputTextureCoordinate", texture 1 is "inputImageTexture2" at "inputTextureCoordinate2". Corners and coordinates
/// are four pairs of floats, bottom-left, bottom-right, top-left, top-right. A value that can be copied and replaced;
/// on the queue of its context, which must outlive it.
class QuadProgram {
 public:
  /// None yet.
  QuadProgram() = default;
  /// The context's program of these two sources, which becomes its current one. On the program's first use `attributes`
  /// are added to it, in this order. Sources that do not compile and link stop the process, with GL's three logs on the
  /// console.
  QuadProgram(TavrelGPUImageContext& context, std::string_view vertexShader, std::string_view fragmentShader,
              std::initializer_list<std::string_view> attributes = {"position", "inputTextureCoordinate"});

  explicit operator bool() const { return program_ != nullptr; }
  const std::shared_ptr<TavrelGLProgram>& program() const { return program_; }

  /// How far a quad's coordinates in `texture` are moved, so that samplers meet its pixels.
  static Point shiftOf(const QuadTexture& texture);
  /// Makes the context current and this its program; before `setTexture`, `draw` and setting uniforms.
  void use() const;
  /// Binds `texture` to the texture unit `unit`; the quad shows its part between the coordinates.
  void setTexture(std::size_t index, const QuadTexture& texture, GLint unit, const GLfloat* coordinates) const;
  void draw(const GLfloat* corners) const;

 private:
  struct Texture {
    GLuint coordinates = 0;
    GLint sampler = -1;
    mutable std::array<GLfloat, 8> corners{};                  // which GL reads when it draws
    mutable const TavrelGPUImageFramebuffer* shown = nullptr;  // until it is drawn
  };

  static std::set<const TavrelGLProgram*>& drawnPrograms();
  PrecompiledProgram description() const;

  TavrelGPUImageContext* context_ = nullptr;
  std::shared_ptr<TavrelGLProgram> program_;
  GLuint position_ = 0;
  std::array<Texture, 2> textures_;
  mutable bool wasDrawn_ = false;
};

}  // namespace tavrel
