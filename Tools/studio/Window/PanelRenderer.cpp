#include "Window/PanelRenderer.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "Platform/Graphics/GLDriverLock.h"

namespace tavrel::studio {
namespace {

constexpr const char* kVertexShader = R"(
  attribute vec2 position;
  attribute vec2 textureCoordinate;
  attribute vec4 color;
  uniform vec4 projection;  // scale, offset
  varying mediump vec2 place;
  varying lowp vec4 tint;
  void main() {
    place = textureCoordinate;
    tint = color;
    gl_Position = vec4(position * projection.xy + projection.zw, 0.0, 1.0);
  })";
constexpr const char* kFragmentShader = R"(
  precision mediump float;
  varying mediump vec2 place;
  varying lowp vec4 tint;
  uniform sampler2D image;
  void main() { gl_FragColor = tint * texture2D(image, place); })";
constexpr const char* kAttributes[] = {"position", "textureCoordinate", "color"};

constexpr GLenum kIndexType = sizeof(ImDrawIdx) == 2 ? GL_UNSIGNED_SHORT : GL_UNSIGNED_INT;

GLuint compiled(GLenum type, const char* source) {
  const GLuint shader = glCreateShader(type);
  glShaderSource(shader, 1, &source, nullptr);
  glCompileShader(shader);
  return shader;
}

// NOLINTBEGIN(performance-no-int-to-ptr): GL takes offsets as pointers, and ImGui textures.
const void* offset(std::size_t bytes) { return reinterpret_cast<const void*>(bytes); }

ImTextureID identityOf(GLuint name) { return reinterpret_cast<ImTextureID>(static_cast<std::uintptr_t>(name)); }
// NOLINTEND(performance-no-int-to-ptr)

GLuint nameOf(ImTextureID texture) { return static_cast<GLuint>(reinterpret_cast<std::uintptr_t>(texture)); }

}  // namespace

WindowTexture::WindowTexture(int width, int height, const void* pixels) : width_(width), height_(height) {
  const GLDriverLock lock;
  glGenTextures(1, &name_);
  glBindTexture(GL_TEXTURE_2D, name_);
  for (const GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
    glTexParameteri(GL_TEXTURE_2D, filter, GL_LINEAR);
  }
  for (const GLenum wrap : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T}) {
    glTexParameteri(GL_TEXTURE_2D, wrap, GL_CLAMP_TO_EDGE);
  }
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
}

WindowTexture::~WindowTexture() {
  const GLDriverLock lock;
  glDeleteTextures(1, &name_);
}

ImTextureID WindowTexture::identity() const { return identityOf(name_); }

Expected<std::unique_ptr<PanelRenderer>> PanelRenderer::create() {
  const GLDriverLock lock;
  std::unique_ptr<PanelRenderer> renderer(new PanelRenderer);
  const GLuint program = renderer->program_ = glCreateProgram();
  for (const GLuint shader :
       {compiled(GL_VERTEX_SHADER, kVertexShader), compiled(GL_FRAGMENT_SHADER, kFragmentShader)}) {
    glAttachShader(program, shader);
    glDeleteShader(shader);
  }
  for (GLuint i = 0; i < std::size(kAttributes); ++i) glBindAttribLocation(program, i, kAttributes[i]);
  glLinkProgram(program);
  GLint isLinked = GL_FALSE;
  glGetProgramiv(program, GL_LINK_STATUS, &isLinked);
  if (isLinked == GL_FALSE) return failure("studio", 3, "the graphics driver refuses the window's shaders");
  renderer->projection_ = glGetUniformLocation(program, "projection");
  glGenBuffers(1, &renderer->vertices_);
  glGenBuffers(1, &renderer->indices_);
  return renderer;
}

PanelRenderer::~PanelRenderer() {
  const GLDriverLock lock;
  glDeleteProgram(program_);
  glDeleteBuffers(1, &vertices_);
  glDeleteBuffers(1, &indices_);
}

void PanelRenderer::begin(Size size, const Rect& picture) {
  const GLDriverLock lock;
  size_ = size;
  glBindFramebuffer(GL_FRAMEBUFFER, 0);
  glViewport(0, 0, static_cast<GLsizei>(size.width), static_cast<GLsizei>(size.height));
  glDisable(GL_SCISSOR_TEST);
  glClearColor(0.11F, 0.115F, 0.13F, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  glEnable(GL_SCISSOR_TEST);
  glScissor(static_cast<GLint>(picture.minX()), static_cast<GLint>(size.height - picture.maxY()),
            static_cast<GLsizei>(picture.size.width), static_cast<GLsizei>(picture.size.height));
  glClearColor(0.05F, 0.05F, 0.055F, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  glDisable(GL_SCISSOR_TEST);
  glUseProgram(program_);
  glActiveTexture(GL_TEXTURE0);
  glDisable(GL_CULL_FACE);
  glDisable(GL_DEPTH_TEST);
}

void PanelRenderer::bindBuffers() const {
  glBindBuffer(GL_ARRAY_BUFFER, vertices_);
  glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, indices_);
  constexpr GLsizei kStride = sizeof(ImDrawVert);
  for (GLuint i = 0; i < std::size(kAttributes); ++i) glEnableVertexAttribArray(i);
  glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, kStride, offset(offsetof(ImDrawVert, pos)));
  glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, kStride, offset(offsetof(ImDrawVert, uv)));
  glVertexAttribPointer(2, 4, GL_UNSIGNED_BYTE, GL_TRUE, kStride, offset(offsetof(ImDrawVert, col)));
}

void PanelRenderer::drawPicture(GLuint texture, const Rect& rectangle, bool mirrored) {
  const GLDriverLock lock;
  glDisable(GL_BLEND);
  glUniform4f(projection_, static_cast<GLfloat>(2 / size_.width), static_cast<GLfloat>(-2 / size_.height), -1, 1);
  const auto vertex = [&](double x, double y, float s, float t) {
    return ImDrawVert{ImVec2(static_cast<float>(x), static_cast<float>(y)), ImVec2(mirrored ? 1 - s : s, t),
                      0xFFFFFFFF};
  };
  const std::array<ImDrawVert, 4> corners = {
      vertex(rectangle.minX(), rectangle.minY(), 0, 1), vertex(rectangle.maxX(), rectangle.minY(), 1, 1),
      vertex(rectangle.minX(), rectangle.maxY(), 0, 0), vertex(rectangle.maxX(), rectangle.maxY(), 1, 0)};
  bindBuffers();
  glBufferData(GL_ARRAY_BUFFER, sizeof(corners), corners.data(), GL_STREAM_DRAW);
  glBindTexture(GL_TEXTURE_2D, texture);
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

void PanelRenderer::setUp(const ImDrawData& panels) const {
  glEnable(GL_BLEND);
  glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
  glEnable(GL_SCISSOR_TEST);
  const ImVec2 size = panels.DisplaySize;
  const ImVec2 origin = panels.DisplayPos;
  glUniform4f(projection_, 2 / size.x, -2 / size.y, -1 - origin.x * 2 / size.x, 1 + origin.y * 2 / size.y);
  bindBuffers();
}

void PanelRenderer::drawPanels(const ImDrawData& panels) {
  const GLDriverLock lock;
  setUp(panels);
  for (int i = 0; i < panels.CmdListsCount; ++i) {
    const ImDrawList& list = *panels.CmdLists[i];
    glBufferData(GL_ARRAY_BUFFER, list.VtxBuffer.size_in_bytes(), list.VtxBuffer.Data, GL_STREAM_DRAW);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, list.IdxBuffer.size_in_bytes(), list.IdxBuffer.Data, GL_STREAM_DRAW);
    for (const ImDrawCmd& command : list.CmdBuffer) {
      const ImVec4& clip = command.ClipRect;
      const auto x = static_cast<GLint>(clip.x - panels.DisplayPos.x);
      const auto top = static_cast<GLint>(clip.y - panels.DisplayPos.y);
      const auto width = static_cast<GLsizei>(clip.z - clip.x);
      const auto height = static_cast<GLsizei>(clip.w - clip.y);
      if (width <= 0 || height <= 0 || command.ElemCount == 0) continue;
      glScissor(x, static_cast<GLint>(panels.DisplaySize.y) - top - height, width, height);
      glBindTexture(GL_TEXTURE_2D, nameOf(command.TextureId));
      glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(command.ElemCount), kIndexType,
                     offset(command.IdxOffset * sizeof(ImDrawIdx)));
    }
  }
  glDisable(GL_SCISSOR_TEST);
}

}  // namespace tavrel::studio
