#pragma once

#include <GLES2/gl2.h>

#include <concepts>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// One OpenGL ES 2.0 program made of one vertex and one fragment shader.
///
/// Created (shaders compiled and attached) → attributes added → linked (`initialized`). A failed link changes nothing
/// and may be tried again. Not thread-safe: every operation runs with a GL context current, on the queue that owns it.
class TAVREL_API TavrelGLProgram {
 public:
  /// Compiles both sources. Never fails: faults are written to the console and to the logs below, and `link` returns
  /// false later. A view without data (`std::string_view{}`) stands for a missing source.
  TavrelGLProgram(std::string_view vertexShaderString, std::string_view fragmentShaderString);
  /// The same with the fragment source read from a file. The extension "fsh" may be left out; a relative name is looked
  /// for in the working directory, then beside the program. A file that cannot be read counts as a missing source.
  template <std::same_as<std::filesystem::path> Path>
  TavrelGLProgram(std::string_view vertexShaderString, const Path& fragmentShaderFilename)
      : TavrelGLProgram(Source{std::string(vertexShaderString), true}, readSource(fragmentShaderFilename, "fsh")) {}
  /// Both sources from files, the vertex source's extension being "vsh".
  template <std::same_as<std::filesystem::path> Path>
  TavrelGLProgram(const Path& vertexShaderFilename, const Path& fragmentShaderFilename)
      : TavrelGLProgram(readSource(vertexShaderFilename, "vsh"), readSource(fragmentShaderFilename, "fsh")) {}
  TavrelGLProgram(const TavrelGLProgram&) = delete;
  TavrelGLProgram& operator=(const TavrelGLProgram&) = delete;
  ~TavrelGLProgram();

  /// Gives `name` the next free index, counted from 0; a name added before keeps its index. Takes effect at the next
  /// `link`.
  void addAttribute(std::string_view name);
  /// The index given to `name`; 0xFFFFFFFF when it was never added.
  GLuint attributeIndex(std::string_view name) const;
  /// GL's location of a uniform; -1 when the program has no such uniform in use.
  GLint uniformIndex(std::string_view name) const;
  bool link();
  void use() const;
  /// Asks GL whether the program can run in the current state; its answer is in `programLog`.
  void validate();

  /// True after a successful `link`.
  bool initialized() const;
  GLuint program() const;
  /// Shader names; 0 after a successful link.
  GLuint vertShader() const;
  GLuint fragShader() const;
  /// GL's log of a shader that did not compile; empty otherwise.
  const std::string& vertexShaderLog() const;
  const std::string& fragmentShaderLog() const;
  /// GL's log of the last `validate`.
  const std::string& programLog() const;

 private:
  struct Source {
    std::string text;
    bool isPresent = false;
  };

  TavrelGLProgram(const Source& vertex, const Source& fragment);
  static Source readSource(const std::filesystem::path& name, const char* extension);

  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
