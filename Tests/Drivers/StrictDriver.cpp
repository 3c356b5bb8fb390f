// Makes the driver behind it one that keeps to the letter: OpenGL ES 2.0 and a few of its extensions, where Mesa takes
// more than it says. To be preloaded.
//
// - Bytes of format BGRA go into textures of internal format BGRA and nowhere else
//   (https://registry.khronos.org/OpenGL/extensions/EXT/EXT_texture_format_BGRA8888.txt).
// - Pixels are read as RGBA; rows of pixels are tight but for their alignment.
// - A texture whose sides are no powers of two, with mipmaps or a wrap mode other than GL_CLAMP_TO_EDGE, is incomplete
// and
//   shows black (OpenGL ES 2.0.25, 3.8.2).
// - Fragment shaders have no highp (The OpenGL ES Shading Language 1.00.17, 4.5.4).
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <GLES3/gl31.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "NextFunction.h"

namespace {

constexpr std::array kHiddenExtensions = {"GL_EXT_read_format_bgra", "GL_EXT_unpack_subimage", "GL_NV_pack_subimage",
                                          "GL_OES_texture_npot", "GL_MESA_bgra"};

std::string withoutHidden(std::string_view list) {
  std::string kept;
  while (!list.empty()) {
    const std::string_view word = list.substr(0, list.find(' '));
    list.remove_prefix(std::min(list.size(), word.size() + 1));
    bool isHidden = false;
    for (const char* hidden : kHiddenExtensions) isHidden = isHidden || word == hidden;
    if (!isHidden) kept.append(word).append(" ");
  }
  return kept;
}

// Errors are made by the driver itself, which then keeps them for glGetError.
void refuseEnumeration() { NEXT(glEnable)(0); }

void refuseOperation() { NEXT(glTexImage2D)(GL_TEXTURE_2D, 0, GL_RGB, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr); }

GLint levelParameter(GLenum parameter) {
  GLint value = 0;
  NEXT(glGetTexLevelParameteriv)(GL_TEXTURE_2D, 0, parameter, &value);
  return value;
}

GLint textureParameter(GLenum parameter) {
  GLint value = 0;
  NEXT(glGetTexParameteriv)(GL_TEXTURE_2D, parameter, &value);
  return value;
}

bool isPowerOfTwo(GLint value) { return (value & (value - 1)) == 0; }

bool boundTextureHasPowersOfTwo() {
  return isPowerOfTwo(levelParameter(GL_TEXTURE_WIDTH)) && isPowerOfTwo(levelParameter(GL_TEXTURE_HEIGHT));
}

bool boundTextureIsComplete() {
  const GLint filter = textureParameter(GL_TEXTURE_MIN_FILTER);
  const bool isSimple = (filter == GL_LINEAR || filter == GL_NEAREST) &&
                        textureParameter(GL_TEXTURE_WRAP_S) == GL_CLAMP_TO_EDGE &&
                        textureParameter(GL_TEXTURE_WRAP_T) == GL_CLAMP_TO_EDGE;
  return isSimple || boundTextureHasPowersOfTwo();
}

/// Takes incomplete textures from their units for the time of a draw: the texture 0 shows black, too.
class IncompleteTextures {
 public:
  IncompleteTextures() {
    NEXT(glGetIntegerv)(GL_ACTIVE_TEXTURE, &active_);
    for (GLenum unit = 0; unit < names_.size(); ++unit) {
      NEXT(glActiveTexture)(GL_TEXTURE0 + unit);
      GLint name = 0;
      NEXT(glGetIntegerv)(GL_TEXTURE_BINDING_2D, &name);
      if (name == 0 || boundTextureIsComplete()) continue;
      names_[unit] = static_cast<GLuint>(name);
      NEXT(glBindTexture)(GL_TEXTURE_2D, 0);
    }
    NEXT(glActiveTexture)(static_cast<GLenum>(active_));
  }
  IncompleteTextures(const IncompleteTextures&) = delete;
  IncompleteTextures& operator=(const IncompleteTextures&) = delete;
  ~IncompleteTextures() {
    for (GLenum unit = 0; unit < names_.size(); ++unit) {
      if (names_[unit] == 0) continue;
      NEXT(glActiveTexture)(GL_TEXTURE0 + unit);
      NEXT(glBindTexture)(GL_TEXTURE_2D, names_[unit]);
    }
    NEXT(glActiveTexture)(static_cast<GLenum>(active_));
  }

 private:
  std::array<GLuint, 8> names_{};
  GLint active_ = 0;
};

/// The text with `replacement` for each `word`.
std::string replaced(std::string text, std::string_view word, std::string_view replacement) {
  const auto isPartOfName = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; };
  for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos;) {
    const std::size_t end = at + word.size();
    const bool isWhole = (at == 0 || !isPartOfName(text[at - 1])) && (end == text.size() || !isPartOfName(text[end]));
    if (isWhole) text.replace(at, word.size(), replacement);
    at += isWhole ? replacement.size() : word.size();
  }
  return text;
}

}  // namespace

extern "C" {

const GLubyte* glGetString(GLenum name) {
  const GLubyte* const value = NEXT(glGetString)(name);
  if (value == nullptr) return value;
  if (name == GL_VERSION) return reinterpret_cast<const GLubyte*>("OpenGL ES 2.0 to the letter");
  if (name != GL_EXTENSIONS) return value;
  thread_local std::string kept;
  kept = withoutHidden(reinterpret_cast<const char*>(value));
  return reinterpret_cast<const GLubyte*>(kept.c_str());
}

void glGetIntegerv(GLenum parameter, GLint* value) {
  if (parameter == GL_IMPLEMENTATION_COLOR_READ_FORMAT) {
    *value = GL_RGBA;
  } else if (parameter == GL_IMPLEMENTATION_COLOR_READ_TYPE) {
    *value = GL_UNSIGNED_BYTE;
  } else {
    NEXT(glGetIntegerv)(parameter, value);
  }
}

void glPixelStorei(GLenum parameter, GLint value) {
  if (parameter != GL_PACK_ALIGNMENT && parameter != GL_UNPACK_ALIGNMENT) return refuseEnumeration();
  NEXT(glPixelStorei)(parameter, value);
}

void glReadPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type, void* pixels) {
  if (format != GL_RGBA || type != GL_UNSIGNED_BYTE) return refuseOperation();
  NEXT(glReadPixels)(x, y, width, height, format, type, pixels);
}

void glTexImage2D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height, GLint border,
                  GLenum format, GLenum type, const void* pixels) {
  const bool isBGRA = format == GL_BGRA_EXT;
  if (static_cast<GLenum>(internalFormat) != format || (isBGRA && type != GL_UNSIGNED_BYTE)) return refuseOperation();
  NEXT(glTexImage2D)(target, level, internalFormat, width, height, border, format, type, pixels);
}

void glTexSubImage2D(GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height, GLenum format,
                     GLenum type, const void* pixels) {
  if ((format == GL_BGRA_EXT) != (levelParameter(GL_TEXTURE_INTERNAL_FORMAT) == GL_BGRA_EXT)) return refuseOperation();
  NEXT(glTexSubImage2D)(target, level, x, y, width, height, format, type, pixels);
}

void glGenerateMipmap(GLenum target) {
  if (!boundTextureHasPowersOfTwo()) return refuseOperation();
  NEXT(glGenerateMipmap)(target);
}

void glDrawArrays(GLenum mode, GLint first, GLsizei count) {
  const IncompleteTextures incomplete;
  NEXT(glDrawArrays)(mode, first, count);
}

void glShaderSource(GLuint shader, GLsizei count, const GLchar* const* strings, const GLint* lengths) {
  GLint type = 0;
  NEXT(glGetShaderiv)(shader, GL_SHADER_TYPE, &type);
  std::string text;
  for (GLsizei i = 0; i < count; ++i) {
    if (lengths != nullptr && lengths[i] >= 0) {
      text.append(strings[i], static_cast<std::size_t>(lengths[i]));
    } else {
      text.append(strings[i]);
    }
  }
  // A word that nobody defined is an error. What asks for mediump gets highp, as it may, and so the same numbers.
  if (type == GL_FRAGMENT_SHADER) text = replaced(std::move(text), "highp", "highp_is_not_supported");
  text = replaced(std::move(text), "mediump", "highp");
  const GLchar* const whole = text.c_str();
  NEXT(glShaderSource)(shader, 1, &whole, nullptr);
}

void glGetShaderPrecisionFormat(GLenum shaderType, GLenum precisionType, GLint* range, GLint* precision) {
  NEXT(glGetShaderPrecisionFormat)(shaderType, precisionType, range, precision);
  if (shaderType != GL_FRAGMENT_SHADER || precisionType != GL_HIGH_FLOAT) return;
  range[0] = range[1] = *precision = 0;
}

}  // extern "C"
