#include "Platform/Graphics/ShaderPreamble.h"

#include <array>

namespace tavrel {

const char* shaderPreamble(GLenum type) {
  std::array<GLint, 2> range{};
  GLint precision = 0;
  glGetShaderPrecisionFormat(GL_FRAGMENT_SHADER, GL_HIGH_FLOAT, range.data(), &precision);
  if (precision > 0) return "";
  return type == GL_VERTEX_SHADER ? "#define highp mediump\nprecision mediump float;\n" : "#define highp mediump\n";
}

}  // namespace tavrel
