#include "GPUImage/TavrelGLProgram.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "GPUImage/Private/Resource.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Graphics/ShaderPreamble.h"

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

struct TavrelGLProgram::Implementation {
  bool compileShader(GLuint& shader, GLenum type, const Source& source);

  bool initialized = false;
  std::vector<std::string> attributes;
  std::vector<std::string> uniforms;
  GLuint program = glCreateProgram();
  GLuint vertShader = 0;
  GLuint fragShader = 0;
  std::string vertexShaderLog;
  std::string fragmentShaderLog;
  std::string programLog;
};

TavrelGLProgram::TavrelGLProgram(const Source& vertex, const Source& fragment)
    : implementation_(std::make_unique<Implementation>()) {
  Implementation& self = *implementation_;
  if (!self.compileShader(self.vertShader, GL_VERTEX_SHADER, vertex)) {
    ConsoleLog::write("Failed to compile vertex shader");
  }
  if (!self.compileShader(self.fragShader, GL_FRAGMENT_SHADER, fragment)) {
    ConsoleLog::write("Failed to compile fragment shader");
  }
  glAttachShader(self.program, self.vertShader);
  glAttachShader(self.program, self.fragShader);
}

TavrelGLProgram::~TavrelGLProgram() {
  if (vertShader()) glDeleteShader(vertShader());
  if (fragShader()) glDeleteShader(fragShader());
  if (program()) glDeleteProgram(program());
}

bool TavrelGLProgram::initialized() const { return implementation_->initialized; }

GLuint TavrelGLProgram::program() const { return implementation_->program; }

GLuint TavrelGLProgram::vertShader() const { return implementation_->vertShader; }

GLuint TavrelGLProgram::fragShader() const { return implementation_->fragShader; }

const std::string& TavrelGLProgram::vertexShaderLog() const { return implementation_->vertexShaderLog; }

const std::string& TavrelGLProgram::fragmentShaderLog() const { return implementation_->fragmentShaderLog; }

const std::string& TavrelGLProgram::programLog() const { return implementation_->programLog; }

TavrelGLProgram::Source TavrelGLProgram::readSource(const std::filesystem::path& name, const char* extension) {
  auto text = readResource(name, extension);
  return {text.value_or(std::string()), text.has_value()};
}

bool TavrelGLProgram::Implementation::compileShader(GLuint& shader, GLenum type, const Source& source) {
  if (!source.isPresent) {
    ConsoleLog::write("Failed to load vertex shader");  // the same text for either shader
    return false;
  }
  shader = glCreateShader(type);
  const std::string text = shaderSource(type, source.text);
  const char* const start = text.c_str();
  glShaderSource(shader, 1, &start, nullptr);
  glCompileShader(shader);
  GLint status = 0;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &status);
  if (status != GL_TRUE) {
    std::string& log = &shader == &vertShader ? vertexShaderLog : fragmentShaderLog;
    log = informationLog(shader, glGetShaderiv, glGetShaderInfoLog);
  }
  return status == GL_TRUE;
}

void TavrelGLProgram::addAttribute(std::string_view name) {
  std::vector<std::string>& attributes = implementation_->attributes;
  if (std::find(attributes.begin(), attributes.end(), name) != attributes.end()) return;
  attributes.emplace_back(name);
  glBindAttribLocation(program(), static_cast<GLuint>(attributes.size() - 1), attributes.back().c_str());
}

GLuint TavrelGLProgram::attributeIndex(std::string_view name) const {
  const std::vector<std::string>& attributes = implementation_->attributes;
  const auto attribute = std::find(attributes.begin(), attributes.end(), name);
  return attribute == attributes.end() ? 0xFFFFFFFF : static_cast<GLuint>(attribute - attributes.begin());
}

GLint TavrelGLProgram::uniformIndex(std::string_view name) const {
  return glGetUniformLocation(program(), std::string(name).c_str());
}

bool TavrelGLProgram::link() {
  glLinkProgram(program());
  GLint status = 0;
  glGetProgramiv(program(), GL_LINK_STATUS, &status);
  if (status == GL_FALSE) return false;
  for (GLuint* shader : {&implementation_->vertShader, &implementation_->fragShader}) {
    if (*shader) glDeleteShader(*shader);
    *shader = 0;
  }
  implementation_->initialized = true;
  return true;
}

void TavrelGLProgram::use() const { glUseProgram(program()); }

void TavrelGLProgram::validate() {
  glValidateProgram(program());
  std::string log = informationLog(program(), glGetProgramiv, glGetProgramInfoLog);
  if (!log.empty()) implementation_->programLog = std::move(log);
}

}  // namespace tavrel
