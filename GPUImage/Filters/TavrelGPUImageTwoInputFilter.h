#pragma once

#include <string_view>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

/// Draws both inputs' texture coordinates through unchanged.
TAVREL_API extern const char* const kTavrelGPUImageTwoInputTextureVertexShaderString;

/// A filter that draws two inputs into one picture, which has the size of the first.
///
/// The first producer to be added takes slot 0, the next one slot 1. A frame is drawn when both slots have received
/// one, with the time of the first. A still picture (a frame with an indefinite time) is needed only once: after it,
/// each frame of the other, moving input is drawn at once, and the still picture's framebuffer stays locked until
/// another takes its place. The fragment shader reads `inputImageTexture` at `textureCoordinate` and
/// `inputImageTexture2` at `textureCoordinate2`.
class TAVREL_API TavrelGPUImageTwoInputFilter : public TavrelGPUImageFilter {
 public:
  explicit TavrelGPUImageTwoInputFilter(std::string_view fragmentShaderString);
  TavrelGPUImageTwoInputFilter(std::string_view vertexShaderString, std::string_view fragmentShaderString);
  ~TavrelGPUImageTwoInputFilter() override;

  /// Stops waiting for this input; an absent frame is drawn transparent black.
  void disableFirstFrameCheck();
  void disableSecondFrameCheck();

  Size rotatedSize(Size sizeToRotate, Index forIndex) const override;
  Index nextAvailableTextureIndex() const override;
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) override;
  /// The second input's size does not matter. Zero for the first frees its slot.
  void setInputSize(Size newSize, Index atIndex) override;
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

 protected:
  void bindInputs(const GLfloat* textureCoordinates) override;
  void unlockInputs() override;

 private:
  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
