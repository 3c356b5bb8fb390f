#pragma once

#include <GLES2/gl2.h>

#include <memory>
#include <span>
#include <vector>

#include "GPUImage/Private/ShaderStage.h"
#include "Platform/Graphics/ProgramPrecompiler.h"

namespace tavrel {

class TavrelGLProgram;

/// A program that takes a colour from a texture through several stages, as many drawings one after the other would:
/// between them it rounds as a framebuffer of 8 bits does.
///
/// Attributes: 0 the corners; from 1 on the places, pairs of texture coordinates. Place 0 is that of the texture that
/// is the first stage's input.
class StageProgram {
 public:
  struct Stage {
    const ShaderStage* shader = nullptr;
    std::size_t place = 0;        ///< number of the place that is its "textureCoordinate"
    std::size_t secondPlace = 0;  ///< and its "textureCoordinate2"
  };

  /// The same object for the same stages. On the video-processing queue, with the shared context current.
  static const StageProgram& of(std::span<const Stage> stages, std::size_t placeCount);
  /// Whether `of` has made it.
  static bool isMade(std::span<const Stage> stages, std::size_t placeCount);
  /// What `of` would compile. The textures' samplers are in the order of the stages, the source's first.
  static PrecompiledProgram described(std::span<const Stage> stages, std::size_t placeCount);
  /// How many were made. Any thread.
  static std::size_t count();

  const std::shared_ptr<TavrelGLProgram>& program() const { return program_; }
  GLint source() const { return source_; }
  /// Locations of a stage's second sampler, -1 without one, and of its tables and uniforms, in its shader's order.
  GLint second(std::size_t stage) const { return seconds_[stage]; }
  const std::vector<GLint>& tables(std::size_t stage) const { return tables_[stage]; }
  const std::vector<GLint>& uniforms(std::size_t stage) const { return uniforms_[stage]; }

 private:
  StageProgram(std::span<const Stage> stages, std::size_t placeCount);

  std::shared_ptr<TavrelGLProgram> program_;
  GLint source_ = -1;
  std::vector<GLint> seconds_;
  std::vector<std::vector<GLint>> tables_;
  std::vector<std::vector<GLint>> uniforms_;
};

}  // namespace tavrel
