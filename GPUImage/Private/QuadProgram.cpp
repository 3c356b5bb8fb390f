#include "GPUImage/Private/QuadProgram.h"

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

QuadTexture::QuadTexture(const TavrelGPUImageFramebuffer* framebuffer) {
  if (!framebuffer) return;
  name = framebuffer->texture();
  size = framebuffer->size();
  isDeep = framebuffer->textureOptions().isDeep();
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
  std::array<GLfloat, 8>& moved = textures_[index].corners;
  for (std::size_t i = 0; i < moved.size(); ++i) {
    moved[i] = static_cast<GLfloat>(static_cast<double>(coordinates[i]) + (i % 2 == 0 ? shift.x : shift.y));
  }
  glActiveTexture(static_cast<GLenum>(GL_TEXTURE0 + unit));
  glBindTexture(GL_TEXTURE_2D, texture.name);
  glUniform1i(textures_[index].sampler, unit);
  glVertexAttribPointer(textures_[index].coordinates, 2, GL_FLOAT, GL_FALSE, 0, moved.data());
}

void QuadProgram::draw(const GLfloat* corners) const {
  glVertexAttribPointer(position_, 2, GL_FLOAT, GL_FALSE, 0, corners);
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

}  // namespace tavrel
