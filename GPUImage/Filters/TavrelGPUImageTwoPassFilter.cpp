#include "GPUImage/Filters/TavrelGPUImageTwoPassFilter.h"

#include <utility>

#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"

namespace tavrel {

struct TavrelGPUImageTwoPassFilter::Implementation {
  QuadProgram secondFilterProgram;
  std::shared_ptr<TavrelGPUImageFramebuffer> secondOutputFramebuffer;
  UniformStateBlocks secondProgramUniformStateRestorationBlocks;
};

TavrelGPUImageTwoPassFilter::TavrelGPUImageTwoPassFilter(std::string_view firstStageFragmentShaderString,
                                                         std::string_view secondStageFragmentShaderString)
    : TavrelGPUImageTwoPassFilter(kTavrelGPUImageVertexShaderString, firstStageFragmentShaderString,
                                  kTavrelGPUImageVertexShaderString, secondStageFragmentShaderString) {}

TavrelGPUImageTwoPassFilter::TavrelGPUImageTwoPassFilter(std::string_view firstStageVertexShaderString,
                                                         std::string_view firstStageFragmentShaderString,
                                                         std::string_view secondStageVertexShaderString,
                                                         std::string_view secondStageFragmentShaderString)
    : TavrelGPUImageFilter(firstStageVertexShaderString, firstStageFragmentShaderString),
      implementation_(std::make_unique<Implementation>()) {
  useSecondProgram(secondStageVertexShaderString, secondStageFragmentShaderString);
}

TavrelGPUImageTwoPassFilter::~TavrelGPUImageTwoPassFilter() = default;

void TavrelGPUImageTwoPassFilter::useSecondProgram(std::string_view vertexShader, std::string_view fragmentShader) {
  onVideoProcessingQueue([&] {
    implementation_->secondFilterProgram = {*TavrelGPUImageContext::sharedImageProcessingContext(), vertexShader,
                                            fragmentShader};
  });
}

std::shared_ptr<TavrelGLProgram> TavrelGPUImageTwoPassFilter::secondProgram() const {
  return onVideoProcessingQueue([this] { return implementation_->secondFilterProgram.program(); });
}

std::shared_ptr<TavrelGPUImageFramebuffer> TavrelGPUImageTwoPassFilter::framebufferForOutput() const {
  return onVideoProcessingQueue([this] { return implementation_->secondOutputFramebuffer; });
}

void TavrelGPUImageTwoPassFilter::setFinalFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer) {
  implementation_->secondOutputFramebuffer = std::move(framebuffer);
}

bool TavrelGPUImageTwoPassFilter::hasOwnUniforms() const {
  return filter().fusion.hasOwnUniforms() && implementation_->secondProgramUniformStateRestorationBlocks.empty();
}

void TavrelGPUImageTwoPassFilter::removeOutputFramebuffer() {
  onVideoProcessingQueue([this] { implementation_->secondOutputFramebuffer.reset(); });
}

void TavrelGPUImageTwoPassFilter::setAndExecuteUniformStateCallbackAtIndex(
    GLint uniform, const std::shared_ptr<TavrelGLProgram>& forProgram, std::function<void()> uniformStateBlock) {
  onVideoProcessingQueue([&] {
    if (forProgram == program()) {
      TavrelGPUImageFilter::setAndExecuteUniformStateCallbackAtIndex(uniform, forProgram, std::move(uniformStateBlock));
      return;
    }
    std::function<void()>& stored = implementation_->secondProgramUniformStateRestorationBlocks[uniform];
    stored = std::move(uniformStateBlock);
    stored();
  });
}

void TavrelGPUImageTwoPassFilter::setUniformsForProgramAtIndex(std::size_t programIndex) {
  if (programIndex == 0) return TavrelGPUImageFilter::setUniformsForProgramAtIndex(programIndex);
  for (const auto& [uniform, restore] : implementation_->secondProgramUniformStateRestorationBlocks) restore();
}

void TavrelGPUImageTwoPassFilter::renderToTextureWithVertices(const GLfloat* vertices,
                                                              const GLfloat* textureCoordinates) {
  if (preventRendering()) return unlockInputs();
  renderPasses(vertices, textureCoordinates);
}

void TavrelGPUImageTwoPassFilter::repeatPasses(const GLfloat* vertices) {
  filter().firstInputFramebuffer =
      TavrelGPUImageFramebufferLease::adopt(std::move(implementation_->secondOutputFramebuffer));
  renderPasses(vertices, textureCoordinatesForRotation(kTavrelGPUImageNoRotation));
}

void TavrelGPUImageTwoPassFilter::renderPasses(const GLfloat* vertices, const GLfloat* textureCoordinates) {
  drawInputs(vertices, textureCoordinates);
  filter().firstInputFramebuffer = {};

  const auto intermediate = TavrelGPUImageFramebufferLease::adopt(TavrelGPUImageFilter::framebufferForOutput());
  setOutputFramebuffer(nullptr);
  implementation_->secondOutputFramebuffer = fetchFramebuffer();
  const QuadProgram& program = implementation_->secondFilterProgram;
  program.use();
  setUniformsForProgramAtIndex(1);
  program.setTexture(0, QuadTexture(intermediate.get().get()), 3,
                     textureCoordinatesForRotation(kTavrelGPUImageNoRotation));
  glClearColor(0, 0, 0, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  program.draw(vertices);
}

}  // namespace tavrel
