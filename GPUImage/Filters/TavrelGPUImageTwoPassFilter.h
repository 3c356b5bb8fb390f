#pragma once

#include <string_view>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

/// A filter of two draws: the first pass draws the input into a framebuffer of its own, the second one that into the
/// output. Both have the output's size. The input's rotation and the background colour act in the first pass; the
/// second one starts from opaque black. Both fragment shaders read `inputImageTexture`.
class TAVREL_API TavrelGPUImageTwoPassFilter : public TavrelGPUImageFilter {
 public:
  /// With the default vertex shader in both passes.
  TavrelGPUImageTwoPassFilter(std::string_view firstStageFragmentShaderString,
                              std::string_view secondStageFragmentShaderString);
  TavrelGPUImageTwoPassFilter(std::string_view firstStageVertexShaderString,
                              std::string_view firstStageFragmentShaderString,
                              std::string_view secondStageVertexShaderString,
                              std::string_view secondStageFragmentShaderString);
  ~TavrelGPUImageTwoPassFilter() override;

  std::shared_ptr<TavrelGLProgram> secondProgram() const;

  std::shared_ptr<TavrelGPUImageFramebuffer> framebufferForOutput() const override;
  void removeOutputFramebuffer() override;
  void setAndExecuteUniformStateCallbackAtIndex(GLint uniform, const std::shared_ptr<TavrelGLProgram>& forProgram,
                                                std::function<void()> uniformStateBlock) override;
  /// 0 for the first pass's program, else the second one's.
  void setUniformsForProgramAtIndex(std::size_t programIndex) override;

 protected:
  void renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* textureCoordinates) override;
  /// Both passes over the output of the passes before, in place of the input.
  void repeatPasses(const GLfloat* vertices);
  /// Draws the second pass by the program of these sources from now on.
  void useSecondProgram(std::string_view vertexShader, std::string_view fragmentShader);

 private:
  void renderPasses(const GLfloat* vertices, const GLfloat* textureCoordinates);

  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
