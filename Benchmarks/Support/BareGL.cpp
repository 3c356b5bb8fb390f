#include "Support/BareGL.h"

#include <algorithm>
#include <array>

#include "Support/Comparison.h"

namespace tavrel::benchmarks {
namespace {

constexpr std::array<GLfloat, 8> kPositions{-1, -1, 1, -1, -1, 1, 1, 1};
constexpr std::array<GLfloat, 8> kCoordinates{0, 0, 1, 0, 0, 1, 1, 1};

GLuint compiled(GLenum type, std::string_view source) {
  const GLuint shader = glCreateShader(type);
  const char* const text = source.data();
  const auto length = static_cast<GLint>(source.size());
  glShaderSource(shader, 1, &text, &length);
  glCompileShader(shader);
  GLint isCompiled = GL_FALSE;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &isCompiled);
  require(isCompiled, "compiling a shader");
  return shader;
}

GLuint linked(std::string_view vertexShader, std::string_view fragmentShader) {
  const GLuint program = glCreateProgram();
  glAttachShader(program, compiled(GL_VERTEX_SHADER, vertexShader));
  glAttachShader(program, compiled(GL_FRAGMENT_SHADER, fragmentShader));
  glLinkProgram(program);
  return program;
}

void setAttribute(GLint attribute, const std::array<GLfloat, 8>& values) {
  if (attribute < 0) return;
  glEnableVertexAttribArray(static_cast<GLuint>(attribute));
  glVertexAttribPointer(static_cast<GLuint>(attribute), 2, GL_FLOAT, GL_FALSE, 0, values.data());
}

}  // namespace

BareTexture::BareTexture(int width, int height, const void* bgra) : width_(width), height_(height) {
  glGenTextures(1, &name_);
  glBindTexture(GL_TEXTURE_2D, name_);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, width, height, 0, GL_BGRA_EXT, GL_UNSIGNED_BYTE, bgra);
}

void BareTexture::update(const void* bgra) const {
  glBindTexture(GL_TEXTURE_2D, name_);
  glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width_, height_, GL_BGRA_EXT, GL_UNSIGNED_BYTE, bgra);
}

BareTarget::BareTarget(int width, int height) : texture_(width, height) {
  glGenFramebuffers(1, &framebuffer_);
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture_.name(), 0);
}

void BareTarget::bind() const {
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  glViewport(0, 0, texture_.width(), texture_.height());
}

BarePass::BarePass(std::string_view vertexShader, std::string_view fragmentShader)
    : program_(linked(vertexShader, fragmentShader)),
      position_(glGetAttribLocation(program_, "position")),
      coordinates_(glGetAttribLocation(program_, "inputTextureCoordinate")),
      secondCoordinates_(glGetAttribLocation(program_, "inputTextureCoordinate2")),
      inputTexture_(glGetUniformLocation(program_, "inputImageTexture")) {}

void BarePass::setSecondTexture(const BareTexture& texture, const char* sampler) {
  secondSampler_ = glGetUniformLocation(program_, sampler);
  secondTexture_ = texture.name();
}

void BarePass::setFloat(const char* uniform, GLfloat value) {
  glUseProgram(program_);
  glUniform1f(glGetUniformLocation(program_, uniform), value);
}

void BarePass::setVector2(const char* uniform, GLfloat x, GLfloat y) {
  glUseProgram(program_);
  glUniform2f(glGetUniformLocation(program_, uniform), x, y);
}

void BarePass::setVector4(const char* uniform, GLfloat x, GLfloat y, GLfloat z, GLfloat w) {
  glUseProgram(program_);
  glUniform4f(glGetUniformLocation(program_, uniform), x, y, z, w);
}

void BarePass::setMatrix(const char* uniform, const std::array<GLfloat, 16>& columns) {
  glUseProgram(program_);
  glUniformMatrix4fv(glGetUniformLocation(program_, uniform), 1, GL_FALSE, columns.data());
}

BarePass BarePass::transform(const AffineTransform& transform, Size size) {
  const auto aspect = static_cast<GLfloat>(size.height / size.width);
  std::array<GLfloat, 16> matrix{};
  const Transform3D full = Transform3D::makeAffine(transform);
  std::transform(full.m.begin(), full.m.end(), matrix.begin(), [](double e) { return static_cast<GLfloat>(e); });
  // The filter's quad is as high as the frame is in proportion; this one is square.
  for (std::size_t i = 4; i < 8; ++i) matrix[i] *= aspect;
  BarePass pass(kTavrelGPUImageTransformVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString);
  pass.setMatrix("transformMatrix", matrix);
  pass.setMatrix("orthographicMatrix", {1, 0, 0, 0, 0, 1 / aspect, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
  return pass;
}

BarePass BarePass::twoInputs(std::string_view fragmentShader, const char* level, const BareTexture& second) {
  BarePass pass(kTavrelGPUImageTwoInputTextureVertexShaderString, fragmentShader);
  pass.setFloat(level, 1);
  pass.setSecondTexture(second);
  return pass;
}

void BarePass::draw(const BareTexture& input, const BareTarget& target) const {
  target.bind();
  glClearColor(0, 0, 0, 0);
  glClear(GL_COLOR_BUFFER_BIT);
  drawQuad(input);
}

void BarePass::drawRows(const BareTexture& input, const BareTarget& target, int first, int count) const {
  target.bind();
  glViewport(0, first, target.texture().width(), count);
  drawQuad(input);
}

void BarePass::drawQuad(const BareTexture& input) const {
  glUseProgram(program_);
  glActiveTexture(GL_TEXTURE2);
  glBindTexture(GL_TEXTURE_2D, input.name());
  glUniform1i(inputTexture_, 2);
  if (secondSampler_ >= 0) {
    glActiveTexture(GL_TEXTURE3);
    glBindTexture(GL_TEXTURE_2D, secondTexture_);
    glUniform1i(secondSampler_, 3);
  }
  setAttribute(position_, kPositions);
  setAttribute(coordinates_, kCoordinates);
  setAttribute(secondCoordinates_, kCoordinates);
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

BareContext::BareContext() {
  auto created = GLContext::create(TavrelGPUImageContext::sharedImageProcessingContext()->context()->sharegroup());
  require(created.has_value(), "creating a GL context");
  context_ = *created;
}

}  // namespace tavrel::benchmarks
