#include "GPUImage/Private/QuadProgram.h"

#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"
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

void QuadProgram::setTexture(std::size_t index, GLuint texture, GLint unit, const GLfloat* coordinates) const {
  glActiveTexture(static_cast<GLenum>(GL_TEXTURE0 + unit));
  glBindTexture(GL_TEXTURE_2D, texture);
  glUniform1i(textures_[index].sampler, unit);
  glVertexAttribPointer(textures_[index].coordinates, 2, GL_FLOAT, GL_FALSE, 0, coordinates);
}

void QuadProgram::draw(const GLfloat* corners) const {
  glVertexAttribPointer(position_, 2, GL_FLOAT, GL_FALSE, 0, corners);
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

}  // namespace tavrel
