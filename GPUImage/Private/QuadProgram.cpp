#include "GPUImage/Private/QuadProgram.h"

#include <algorithm>
#include <string>
#include <utility>

#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/Rehearsal.h"
#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {
namespace {

void link(TavrelGLProgram& program, std::initializer_list<std::string_view> attributes) {
  for (const std::string_view attribute : attributes) program.addAttribute(attribute);
  if (program.link()) return;
  ConsoleLog::write("Program link log: {}", program.programLog());
  ConsoleLog::write("Fragment shader compile log: {}", program.fragmentShaderLog());
  ConsoleLog::write("Vertex shader compile log: {}", program.vertexShaderLog());
  fatalAssertion("Filter shader link failed");
}

}  // namespace

QuadTexture::QuadTexture(const TavrelGPUImageFramebuffer* shown) : framebuffer(shown) {
  if (!shown) return;
  name = shown->texture();
  size = shown->size();
  isDeep = shown->textureOptions().isDeep();
}

QuadProgram::QuadProgram(TavrelGPUImageContext& context, std::string_view vertexShader, std::string_view fragmentShader,
                         std::initializer_list<std::string_view> attributes)
    : context_(&context) {
  context.useAsCurrentContext();
  program_ = context.programForVertexShaderString(vertexShader, fragmentShader);
  if (!program_->initialized()) link(*program_, attributes);
  position_ = program_->attributeIndex("position");
  textures_ = {{{program_->attributeIndex("inputTextureCoordinate"), program_->uniformIndex("inputImageTexture")},
                {program_->attributeIndex("inputTextureCoordinate2"), program_->uniformIndex("inputImageTexture2")}}};
  use();
  for (const std::string_view attribute : attributes) glEnableVertexAttribArray(program_->attributeIndex(attribute));
}

void QuadProgram::use() const { context_->setContextShaderProgram(program_); }

// Samplers of bytes cut positions off, to 1/256 of a pixel: what rounding has put just before a pixel's centre would be
// mixed with the pixel before. So all positions lie a little behind, by more than an interpolation of 16 bits is off
// over the 64 pixels that Mesa's software draws at a time.
Point QuadProgram::shiftOf(const QuadTexture& texture) {
  const double shift = texture.isDeep ? 0 : 1.5 / 1024;
  return {shift / texture.size.width, shift / texture.size.height};
}

void QuadProgram::setTexture(std::size_t index, const QuadTexture& texture, GLint unit,
                             const GLfloat* coordinates) const {
  const Point shift = shiftOf(texture);
  textures_[index].shown = texture.framebuffer;
  std::array<GLfloat, 8>& moved = textures_[index].corners;
  for (std::size_t i = 0; i < moved.size(); ++i) {
    moved[i] = static_cast<GLfloat>(static_cast<double>(coordinates[i]) + (i % 2 == 0 ? shift.x : shift.y));
  }
  glActiveTexture(static_cast<GLenum>(GL_TEXTURE0 + unit));
  glBindTexture(GL_TEXTURE_2D, texture.name);
  glUniform1i(textures_[index].sampler, unit);
  glVertexAttribPointer(textures_[index].coordinates, 2, GL_FLOAT, GL_FALSE, 0, moved.data());
}

/// Those of the shared context, which keeps them for good. On the video-processing queue.
std::set<const TavrelGLProgram*>& QuadProgram::drawnPrograms() {
  static auto* const drawn = new std::set<const TavrelGLProgram*>;
  return *drawn;
}

PrecompiledProgram QuadProgram::description() const {
  PrecompiledProgram result;
  const GLuint name = program_->program();
  // Shaders that are deleted stay while they belong to a program.
  std::array<GLuint, 2> shaders{};
  GLsizei count = 0;
  glGetAttachedShaders(name, 2, &count, shaders.data());
  for (GLsizei i = 0; i < count; ++i) {
    GLint type = 0, length = 0;
    glGetShaderiv(shaders[static_cast<std::size_t>(i)], GL_SHADER_TYPE, &type);
    glGetShaderiv(shaders[static_cast<std::size_t>(i)], GL_SHADER_SOURCE_LENGTH, &length);
    std::string text(static_cast<std::size_t>(std::max(length, 1)), '\0');
    GLsizei written = 0;
    glGetShaderSource(shaders[static_cast<std::size_t>(i)], length, &written, text.data());
    text.resize(static_cast<std::size_t>(written));
    (type == GL_VERTEX_SHADER ? result.vertexShader : result.fragmentShader) = std::move(text);
  }
  for (const char* attribute : {"position", "inputTextureCoordinate", "inputTextureCoordinate2"}) {
    const GLuint index = program_->attributeIndex(attribute);
    if (index != 0xFFFFFFFF) result.attributes.emplace_back(attribute, index);
  }
  for (std::size_t i = 0; i < textures_.size(); ++i) {
    if (textures_[i].sampler < 0) continue;
    auto& texture =
        result.textures.emplace_back(PrecompiledProgram::Texture{.sampler = "inputImageTexture" + std::string(i, '2')});
    if (textures_[i].shown) FramebufferContents::describe(*textures_[i].shown, texture);
  }
  return result;
}

void QuadProgram::draw(const GLfloat* corners) const {
  if (Rehearsal::isNoting()) {
    if (!drawnPrograms().contains(program_.get())) Rehearsal::current()->note(description());
    return;
  }
  if (!std::exchange(wasDrawn_, true) && context_ == TavrelGPUImageContext::sharedImageProcessingContext().get())
    drawnPrograms().insert(program_.get());
  glVertexAttribPointer(position_, 2, GL_FLOAT, GL_FALSE, 0, corners);
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

}  // namespace tavrel
