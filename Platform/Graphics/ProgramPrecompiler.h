#pragma once

#include <GLES2/gl2.h>

#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// A program, and what its machine code depends on besides.
struct PrecompiledProgram {
  /// As `glTexImage2D` takes it.
  struct Pixels {
    GLenum internalFormat = GL_RGBA, format = GL_RGBA, type = GL_UNSIGNED_BYTE;
  };
  struct Texture {
    std::string sampler = {};
    GLint width = 1, height = 1;  ///< in pixels; their being powers of two matters
    Pixels pixels = {};
    bool givesSinglePixels = false;  ///< else it is sampled linearly
  };

  std::string vertexShader, fragmentShader;                ///< as the driver gets them
  std::vector<std::pair<std::string, GLuint>> attributes;  ///< pairs of floats, with their locations
  std::vector<Texture> textures;
};

/// Compiles programs ahead of their first use, on a display and a thread of its own.
///
/// A context stands still while its driver turns a shader into machine code, for half a second with software drivers,
/// and what they make serves for one context only. But drivers keep it on disk, where others find it, so that drawing
/// in the meantime need not wait. (Mesa's cache is in `XDG_CACHE_HOME` or `MESA_SHADER_CACHE_DIR`, bounded, and proof
/// against broken files and several processes.)
class TAVREL_API ProgramPrecompiler {
 public:
  /// Whether the driver of the current context keeps programs.
  static bool isPossible();
  /// Puts `programs` into the driver's cache, for a target with such pixels; returns after it. Programs that do not
  /// compile are passed over, as are those that are left after 5 s. Does nothing where there is no second display of
  /// the same driver. Any thread.
  static void compile(std::span<const PrecompiledProgram> programs, const PrecompiledProgram::Pixels& target);
};

}  // namespace tavrel
