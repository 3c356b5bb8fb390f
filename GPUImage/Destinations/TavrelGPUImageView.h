#pragma once

#include <GLES2/gl2.h>

#include <array>
#include <memory>

#include "GPUImage/Destinations/TavrelGPUImageFillMode.h"
#include "GPUImage/TavrelGPUImageInput.h"
#include "GPUImage/TavrelGPUImageRotationMode.h"
#include "Platform/UI/DrawableLayer.h"
#include "Platform/UI/View.h"

namespace tavrel {

/// The end of the graph that people see: draws each frame into its layer's renderbuffer and presents it.
///
///     no display framebuffer ──first layout with a size──▶ display framebuffer ──other size──▶ re-created
///
/// The video-processing queue never waits for the display: presenting swaps textures, and the newest picture replaces
/// one that was not shown yet. As a view it belongs to the main thread (see `View`); the operations of
/// `TavrelGPUImageInput` and of the display framebuffer run on the video-processing queue, or are sent there and waited
/// for. Made by `std::make_shared`; may be destroyed on any thread.
class TAVREL_API TavrelGPUImageView : public View, public TavrelGPUImageInput {
 public:
  using LayerClass = std::shared_ptr<DrawableLayer> (*)();

  /// `frame` in the superview, in points; may be empty until a later layout.
  explicit TavrelGPUImageView(const Rect& frame = {});
  ~TavrelGPUImageView() override;

  /// Makes a view's layer, on which GL can draw.
  static LayerClass layerClass();
  /// Texture coordinates (s, t) of the corners bottom-left, bottom-right, top-left, top-right: a filter's, upside down,
  /// because a layer's origin is at the top. nullptr for a value that is no rotation mode.
  static const GLfloat* textureCoordinatesForRotation(TavrelGPUImageRotationMode rotationMode);

  /// kTavrelGPUImageFillModePreserveAspectRatio at creation. Any thread.
  TavrelGPUImageFillModeType fillMode() const;
  void setFillMode(TavrelGPUImageFillModeType newValue);
  /// What is seen where the picture does not reach, components in 0…1; opaque black at creation. Any thread.
  void setBackgroundColorRed(GLfloat redComponent, GLfloat green, GLfloat blue, GLfloat alpha);
  /// Of the display framebuffer; `maximumOutputSize` before there was one. Any thread.
  Size sizeInPixels() const;
  /// Kept for callers; has no effect.
  double aspectRatio() const;
  void setAspectRatio(double aspectRatio);
  void setEnabled(bool enabled);
  /// The corners of the picture, bottom-left, bottom-right, top-left, top-right, the view being -1…1 both ways. On the
  /// video-processing queue.
  const std::array<GLfloat, 8>& imageVertices() const;

  void layoutSubviews() override;

  void createDisplayFramebuffer();
  void destroyDisplayFramebuffer();
  void setDisplayFramebuffer();
  void presentFramebuffer();
  void recalculateViewGeometry();

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) override;
  Index nextAvailableTextureIndex() const override { return 0; }
  void setInputSize(Size newSize, Index atIndex) override;
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  /// The view's size in pixels. Any thread.
  Size maximumOutputSize() const override;
  void endProcessing() override {}
  bool shouldIgnoreUpdatesToThisTarget() const override { return false; }
  bool enabled() const override;
  bool wantsMonochromeInput() const override { return false; }
  void setCurrentlyReceivingMonochromeInput(bool) override {}

 protected:
  void contentScaleFactorDidChange() override;

 private:
  struct Implementation;

  TavrelGPUImageView(const Rect& frame, const std::shared_ptr<DrawableLayer>& layer);
  void commonInit();
  void recreateDisplayFramebuffer();
  void refreshBoundsForBackgroundThread();

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
