#pragma once

#include <string_view>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Passes position and both inputs' texture coordinates through.
TAVREL_API extern const char* const kTavrelGPUImageTwoInputTextureVertexShaderString;

/// Draws two inputs into one frame, which has the first input's size.
///
/// The first producer added takes slot 0, the next slot 1. A frame is drawn once both slots have received one, with the
/// first one's time. A still picture (a frame with an indefinite time) is needed only once: then each frame of the
/// other input is drawn at once, and the still picture's framebuffer stays locked until it is replaced. The fragment
/// shader samples `inputImageTexture` at `textureCoordinate` and `inputImageTexture2` at `textureCoordinate2`.
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
  /// The second input's size is ignored. Zero for the first frees its slot.
  void setInputSize(Size newSize, Index atIndex) override;
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

 protected:
  void scaleInputs(const GLfloat* vertices, const GLfloat* textureCoordinates) override;
  /// Whether the second input is a picture like the first one; false for a table.
  virtual bool scalesSecondInput() const { return false; }
  void bindInputs(const GLfloat* textureCoordinates) override;
  void unlockInputs() override;
  std::shared_ptr<void> keepInputs() override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
