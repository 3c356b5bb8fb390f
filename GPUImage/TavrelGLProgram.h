#pragma once

#include <GLES2/gl2.h>

#include <concepts>
#include <filesystem>
#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// An OpenGL ES 2.0 program of a vertex and a fragment shader.
///
/// Created (shaders compiled and attached) → attributes added → linked (`initialized`). A failed link changes nothing
/// and may be retried. Not thread-safe: use it with a GL context current, on the queue that owns the context.
class TAVREL_API TavrelGLProgram {
 public:
  /// Compiles both sources. Errors go to the console and to the logs below, and make `link` return false. A view
  /// without data (`std::string_view{}`) counts as a missing source.
  TavrelGLProgram(std::string_view vertexShaderString, std::string_view fragmentShaderString);
  /// The same with the fragment source from a file. The extension "fsh" may be omitted; a relative name is looked up in
  /// the working directory, then beside the executable. A file that cannot be read counts as a missing source.
  template <std::same_as<std::filesystem::path> Path>
  TavrelGLProgram(std::string_view vertexShaderString, const Path& fragmentShaderFilename)
      : TavrelGLProgram(Source{std::string(vertexShaderString), true}, readSource(fragmentShaderFilename, "fsh")) {}
  /// Both sources from files; the vertex source's extension is "vsh".
  template <std::same_as<std::filesystem::path> Path>
  TavrelGLProgram(const Path& vertexShaderFilename, const Path& fragmentShaderFilename)
      : TavrelGLProgram(readSource(vertexShaderFilename, "vsh"), readSource(fragmentShaderFilename, "fsh")) {}
  TavrelGLProgram(const TavrelGLProgram&) = delete;
  TavrelGLProgram& operator=(const TavrelGLProgram&) = delete;
  ~TavrelGLProgram();

  /// Assigns `name` the next index, from 0, unless it has one. Takes effect at the next `link`.
  void addAttribute(std::string_view name);
  /// The index of `name`; 0xFFFFFFFF if it was not added.
  GLuint attributeIndex(std::string_view name) const;
  /// GL's location of a uniform; -1 if the program uses no such uniform.
  GLint uniformIndex(std::string_view name) const;
  bool link();
  void use() const;
  /// Checks whether the program can run in the current GL state; the result is in `programLog`.
  void validate();

  /// True after a successful `link`.
  bool initialized() const;
  GLuint program() const;
  /// GL's names of the shaders; 0 after a successful link.
  GLuint vertShader() const;
  GLuint fragShader() const;
  /// The log of a shader that failed to compile; otherwise empty.
  const std::string& vertexShaderLog() const;
  const std::string& fragmentShaderLog() const;
  /// The log of the last `validate`.
  const std::string& programLog() const;

 private:
  struct Source {
    std::string text;
    bool isPresent = false;
  };

  TavrelGLProgram(const Source& vertex, const Source& fragment);
  static Source readSource(const std::filesystem::path& name, const char* extension);

  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
