#pragma once

#include <GLES2/gl2.h>

#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// A program, and what else its machine code depends on.
struct PrecompiledProgram {
  /// As `glTexImage2D` takes it.
  struct Pixels {
    GLenum internalFormat = GL_RGBA, format = GL_RGBA, type = GL_UNSIGNED_BYTE;
  };
  struct Texture {
    std::string sampler = {};
    GLint width = 1, height = 1;  ///< in pixels; drivers tell powers of two apart
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
/// and the code serves that context only. But drivers keep it on disk, where other contexts find it, so that drawing
/// need not wait in the meantime. (Mesa's cache is in `XDG_CACHE_HOME` or `MESA_SHADER_CACHE_DIR`, bounded, and safe
/// against broken files and concurrent processes.)
class TAVREL_API ProgramPrecompiler {
 public:
  /// Whether the driver of the current context keeps programs.
  static bool isPossible();
  /// Compiles `programs` into the driver's cache, for a target with such pixels, and returns when done. Skips programs
  /// that do not compile, and those that are left after 5 s. Does nothing without a second display of the same driver.
  /// Any thread.
  static void compile(std::span<const PrecompiledProgram> programs, const PrecompiledProgram::Pixels& target);
};

}  // namespace tavrel
