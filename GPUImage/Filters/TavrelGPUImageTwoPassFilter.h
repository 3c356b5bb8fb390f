#pragma once

#include <memory>
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

  const std::shared_ptr<TavrelGLProgram>& secondProgram() const { return secondFilterProgram; }

  std::shared_ptr<TavrelGPUImageFramebuffer> framebufferForOutput() const override { return secondOutputFramebuffer; }
  void removeOutputFramebuffer() override { secondOutputFramebuffer.reset(); }
  void setAndExecuteUniformStateCallbackAtIndex(GLint uniform, const std::shared_ptr<TavrelGLProgram>& forProgram,
                                                std::function<void()> uniformStateBlock) override;
  /// 0 for the first pass's program, else the second one's.
  void setUniformsForProgramAtIndex(std::size_t programIndex) override;

 protected:
  void renderToTexture(const GLfloat* vertices, const GLfloat* textureCoordinates) override;
  /// Both passes; the result is `secondOutputFramebuffer`, with the lock of its fetch.
  void renderPasses(const GLfloat* vertices, const GLfloat* textureCoordinates);
  /// Keeps the result for the image that somebody waits for, if anybody does.
  void captureOutput();
  /// Makes the second pass's program of these sources. Video-processing queue.
  void useSecondProgram(std::string_view vertexShader, std::string_view fragmentShader);

  std::shared_ptr<TavrelGLProgram> secondFilterProgram;
  GLuint secondFilterPositionAttribute = 0;
  GLuint secondFilterTextureCoordinateAttribute = 0;
  GLint secondFilterInputTextureUniform = -1;
  GLint secondFilterInputTextureUniform2 = -1;
  std::shared_ptr<TavrelGPUImageFramebuffer> secondOutputFramebuffer;
  UniformStateBlocks secondProgramUniformStateRestorationBlocks;
};

}  // namespace tavrel
