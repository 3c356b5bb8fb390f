#pragma once

#include <string_view>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Draws in two passes: the first draws the input into an intermediate framebuffer of the output's size, the second
/// draws that into the output. The first pass applies the input rotation and the background colour; the second starts
/// from opaque black. Both fragment shaders sample `inputImageTexture`.
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
  /// 0 for the first pass's program, else the second's.
  void setUniformsForProgramAtIndex(std::size_t programIndex) override;

 protected:
  void renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* textureCoordinates) override;
  /// Runs both passes again, on the output of the previous passes.
  void repeatPasses(const GLfloat* vertices);
  /// Uses the program of these sources for the second pass from now on.
  void useSecondProgram(std::string_view vertexShader, std::string_view fragmentShader);
  /// Sets the result of `framebufferForOutput`, together with the lock from its fetch.
  void setFinalFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer);
  /// Whether nobody else sets uniforms of the two programs.
  bool hasOwnUniforms() const;

 private:
  void renderPasses(const GLfloat* vertices, const GLfloat* textureCoordinates);

  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
