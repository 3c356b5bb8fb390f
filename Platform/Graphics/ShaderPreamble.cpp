#include "Platform/Graphics/ShaderPreamble.h"

#include <algorithm>
#include <array>

namespace tavrel {
namespace {

const char* preamble(GLenum type) {
  std::array<GLint, 2> range{};
  GLint precision = 0;
  glGetShaderPrecisionFormat(GL_FRAGMENT_SHADER, GL_HIGH_FLOAT, range.data(), &precision);
  const bool isFragmentShader = type == GL_FRAGMENT_SHADER;
  if (precision > 0)
    return isFragmentShader ? "#define lowp highp\nprecision highp sampler2D;\n" : "#define lowp highp\n";
  return isFragmentShader ? "#define highp mediump\n#define lowp mediump\nprecision mediump sampler2D;\n"
                          : "#define highp mediump\n#define lowp mediump\nprecision mediump float;\n";
}

/// Where the lines end that must come first.
std::size_t endOfFirstLines(std::string_view source) {
  std::size_t end = 0;
  while (end < source.size()) {
    const std::size_t text = std::min(source.find_first_not_of(" \t\r\n", end), source.size());
    const std::string_view rest = source.substr(text);
    if (!rest.starts_with("#version") && !rest.starts_with("#extension") && !rest.starts_with("//")) break;
    end = std::min(source.find('\n', text), source.size() - 1) + 1;
  }
  return end;
}

}  // namespace

std::string shaderSource(GLenum type, std::string_view source) {
  const std::size_t end = endOfFirstLines(source);
  std::string text(source.substr(0, end));
  if (end > 0 && text.back() != '\n') text += '\n';
  return text.append(preamble(type)).append(source.substr(end));
}

}  // namespace tavrel
