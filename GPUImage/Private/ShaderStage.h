#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tavrel {

/// A filter's fragment shader as one step of a larger one, in which it stands beside others.
///
/// In `text` each global name of the shader, such as a uniform, ends in `kNumber`, for which the larger shader puts the
/// step's number. Its `main` reads the colour at its own place from the variable "before" and writes "after". The
/// inputs' samplers and coordinates keep their names (with the number) and are declared outside; tables are textures of
/// its own.
struct ShaderStage {
  static constexpr char kNumber = '@';

  std::string text;
  std::vector<std::string> uniforms;  ///< without samplers
  std::vector<std::string> tables;    ///< samplers other than the inputs'
  bool usesPlace = false;             ///< reads "textureCoordinate"
  bool readsAround = false;           ///< samples its input elsewhere than at "textureCoordinate"
  bool hasSecondInput = false;
  bool usesSecondPlace = false;  ///< reads "textureCoordinate2"
  int identifier = 0;            ///< of this text, in the process

  /// Nothing for a shader that cannot be a step: with directives, `discard` or varyings of its own. The same object for
  /// the same text. On the video-processing queue.
  static std::shared_ptr<const ShaderStage> of(const std::string& fragmentShader);
};

}  // namespace tavrel
