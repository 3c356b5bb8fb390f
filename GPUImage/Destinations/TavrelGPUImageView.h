#pragma once

#include <GLES2/gl2.h>

#include <array>
#include <memory>

#include "GPUImage/Destinations/TavrelGPUImageFillMode.h"
#include "GPUImage/TavrelGPUImageInput.h"
#include "GPUImage/TavrelGPUImageRotationMode.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/UI/DrawableLayer.h"
#include "Platform/UI/View.h"

namespace tavrel {

/// A view that shows frames: draws each one into its layer's renderbuffer and presents it.
///
///     no display framebuffer ──first layout with a size──▶ display framebuffer ──other size──▶ re-created
///
/// The video-processing queue never waits for the display: presenting swaps textures, and the latest frame replaces one
/// not shown yet. As a `View` it belongs to the main thread; members of `TavrelGPUImageInput` and of the display
/// framebuffer run on the video-processing queue, or dispatch to it and wait. Create with `std::make_shared`; may be
/// destroyed on any thread.
class TAVREL_API TavrelGPUImageView : public View, public TavrelGPUImageInput {
 public:
  using LayerClass = std::shared_ptr<DrawableLayer> (*)();

  /// `frame` in the superview's coordinates, in points; may be empty until a later layout.
  explicit TavrelGPUImageView(const Rect& frame = {});
  ~TavrelGPUImageView() override;

  /// The factory of the view's layer.
  static LayerClass layerClass();
  /// Texture coordinates (s, t) of the corners bottom-left, bottom-right, top-left, top-right: those of a filter
  /// flipped vertically, as a layer's origin is at the top. nullptr for an invalid mode.
  static const GLfloat* textureCoordinatesForRotation(TavrelGPUImageRotationMode rotationMode);

  /// By default kTavrelGPUImageFillModePreserveAspectRatio. Any thread.
  TavrelGPUImageFillModeType fillMode() const;
  void setFillMode(TavrelGPUImageFillModeType newValue);
  /// Colour of the area outside the frame, components in 0…1; by default opaque black. Any thread.
  void setBackgroundColorRed(GLfloat redComponent, GLfloat green, GLfloat blue, GLfloat alpha);
  /// Size of the display framebuffer, or `maximumOutputSize` before there is one. Any thread.
  Size sizeInPixels() const;
  /// Stored for callers; has no effect.
  double aspectRatio() const;
  void setAspectRatio(double aspectRatio);
  void setEnabled(bool enabled);
  /// Corners of the frame (bottom-left, bottom-right, top-left, top-right) in coordinates of -1…1 across the view. On
  /// the video-processing queue.
  const std::array<GLfloat, 8>& imageVertices() const;

  void layoutSubviews() override;

  void createDisplayFramebuffer();
  void destroyDisplayFramebuffer();
  void setDisplayFramebuffer();
  void presentFramebuffer();
  void recalculateViewGeometry();

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) override;
  void setInputSize(Size newSize, Index atIndex) override;
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  /// The view's size in pixels. Any thread.
  Size maximumOutputSize() const override;
  bool enabled() const override;

 protected:
  void contentScaleFactorDidChange() override;

 private:
  struct Implementation;

  TavrelGPUImageView(const Rect& frame, const std::shared_ptr<DrawableLayer>& layer);
  void commonInit();
  void recreateDisplayFramebuffer();
  void refreshBoundsForBackgroundThread();

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
