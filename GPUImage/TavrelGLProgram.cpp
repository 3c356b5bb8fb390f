#include "GPUImage/TavrelGLProgram.h"

#include <algorithm>
#include <utility>

#include "GPUImage/Private/Resource.h"
#include "Platform/Foundation/ConsoleLog.h"

namespace tavrel {
namespace {

/// GL's information log, fetched by the pair of calls that belongs to shaders or to programs.
template <typename GetParameter, typename GetLog>
std::string informationLog(GLuint object, GetParameter getParameter, GetLog getLog) {
  GLint length = 0;
  getParameter(object, GL_INFO_LOG_LENGTH, &length);
  if (length <= 0) return {};
  std::string log(static_cast<std::size_t>(length), '\0');
  GLsizei written = 0;
  getLog(object, length, &written, log.data());
  log.resize(static_cast<std::size_t>(written));
  return log;
}

}  // namespace

TavrelGLProgram::TavrelGLProgram(std::string_view vertexShaderString, std::string_view fragmentShaderString)
    : TavrelGLProgram(Source{std::string(vertexShaderString), vertexShaderString.data() != nullptr},
                      Source{std::string(fragmentShaderString), fragmentShaderString.data() != nullptr}) {}

TavrelGLProgram::TavrelGLProgram(const Source& vertex, const Source& fragment) : program_(glCreateProgram()) {
  if (!compileShader(vertShader_, GL_VERTEX_SHADER, vertex)) ConsoleLog::write("Failed to compile vertex shader");
  if (!compileShader(fragShader_, GL_FRAGMENT_SHADER, fragment)) {
    ConsoleLog::write("Failed to compile fragment shader");
  }
  glAttachShader(program_, vertShader_);
  glAttachShader(program_, fragShader_);
}

TavrelGLProgram::~TavrelGLProgram() {
  if (vertShader_) glDeleteShader(vertShader_);
  if (fragShader_) glDeleteShader(fragShader_);
  if (program_) glDeleteProgram(program_);
}

TavrelGLProgram::Source TavrelGLProgram::readSource(const std::filesystem::path& name, const char* extension) {
  auto text = readResource(name, extension);
  return {text.value_or(std::string()), text.has_value()};
}

bool TavrelGLProgram::compileShader(GLuint& shader, GLenum type, const Source& source) {
  if (!source.isPresent) {
    ConsoleLog::write("Failed to load vertex shader");  // the same text for either shader
    return false;
  }
  shader = glCreateShader(type);
  const GLchar* const text = source.text.c_str();
  glShaderSource(shader, 1, &text, nullptr);
  glCompileShader(shader);
  GLint status = 0;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &status);
  if (status != GL_TRUE) {
    std::string& log = &shader == &vertShader_ ? vertexShaderLog_ : fragmentShaderLog_;
    log = informationLog(shader, glGetShaderiv, glGetShaderInfoLog);
  }
  return status == GL_TRUE;
}

void TavrelGLProgram::addAttribute(std::string_view name) {
  if (std::find(attributes_.begin(), attributes_.end(), name) != attributes_.end()) return;
  attributes_.emplace_back(name);
  glBindAttribLocation(program_, static_cast<GLuint>(attributes_.size() - 1), attributes_.back().c_str());
}

GLuint TavrelGLProgram::attributeIndex(std::string_view name) const {
  const auto attribute = std::find(attributes_.begin(), attributes_.end(), name);
  return attribute == attributes_.end() ? 0xFFFFFFFF : static_cast<GLuint>(attribute - attributes_.begin());
}

GLint TavrelGLProgram::uniformIndex(std::string_view name) const {
  return glGetUniformLocation(program_, std::string(name).c_str());
}

bool TavrelGLProgram::link() {
  glLinkProgram(program_);
  GLint status = 0;
  glGetProgramiv(program_, GL_LINK_STATUS, &status);
  if (status == GL_FALSE) return false;
  for (GLuint* shader : {&vertShader_, &fragShader_}) {
    if (*shader) glDeleteShader(*shader);
    *shader = 0;
  }
  initialized_ = true;
  return true;
}

void TavrelGLProgram::use() const {
  glUseProgram(program_);
}

void TavrelGLProgram::validate() {
  glValidateProgram(program_);
  std::string log = informationLog(program_, glGetProgramiv, glGetProgramInfoLog);
  if (!log.empty()) programLog_ = std::move(log);
}

}  // namespace tavrel
