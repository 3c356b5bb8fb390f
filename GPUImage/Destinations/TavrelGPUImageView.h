#pragma once

#include <GLES2/gl2.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageFramebufferLease.h"
#include "GPUImage/TavrelGPUImageInput.h"
#include "GPUImage/TavrelGPUImageRotationMode.h"
#include "Platform/UI/DrawableLayer.h"
#include "Platform/UI/View.h"

namespace tavrel {

/// How a picture is fitted into a view of other proportions.
enum TavrelGPUImageFillModeType : std::uint64_t {
  kTavrelGPUImageFillModeStretch = 0,                    ///< both sides fill the view
  kTavrelGPUImageFillModePreserveAspectRatio = 1,        ///< all of the picture, bars of the background colour
  kTavrelGPUImageFillModePreserveAspectRatioAndFill = 2  ///< all of the view, what does not fit is cut off
};

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
  TavrelGPUImageFillModeType fillMode() const { return fillMode_; }
  void setFillMode(TavrelGPUImageFillModeType newValue);
  /// What is seen where the picture does not reach, components in 0…1; opaque black at creation. Any thread.
  void setBackgroundColorRed(GLfloat redComponent, GLfloat green, GLfloat blue, GLfloat alpha);
  /// Of the display framebuffer; `maximumOutputSize` before there was one. Any thread.
  Size sizeInPixels() const;
  /// Kept for callers; has no effect.
  double aspectRatio() const { return aspectRatio_; }
  void setAspectRatio(double aspectRatio) { aspectRatio_ = aspectRatio; }
  void setEnabled(bool enabled) { enabled_ = enabled; }
  /// The corners of the picture, bottom-left, bottom-right, top-left, top-right, the view being -1…1 both ways. On the
  /// video-processing queue.
  const std::array<GLfloat, 8>& imageVertices() const { return imageVertices_; }

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
  bool enabled() const override { return enabled_; }
  bool wantsMonochromeInput() const override { return false; }
  void setCurrentlyReceivingMonochromeInput(bool) override {}

 protected:
  void contentScaleFactorDidChange() override;

 private:
  explicit TavrelGPUImageView(const Rect& frame, const std::shared_ptr<DrawableLayer>& layer);
  void commonInit();
  void initializeDisplayProgram();
  void recreateDisplayFramebuffer();
  void refreshBoundsForBackgroundThread();
  Rect boundsForBackgroundThread() const;
  void drawInput();

  const std::shared_ptr<GLDrawable> drawable_;
  std::shared_ptr<TavrelGLProgram> displayProgram;
  GLuint displayPositionAttribute = 0;
  GLuint displayTextureCoordinateAttribute = 0;
  GLint displayInputTextureUniform = -1;
  GLuint displayFramebuffer = 0;
  GLuint displayRenderbuffer = 0;
  TavrelGPUImageFramebufferLease inputFramebufferForDisplay;
  Size inputImageSize;
  std::array<GLfloat, 8> imageVertices_{};
  GLfloat backgroundColorRed = 0;
  GLfloat backgroundColorGreen = 0;
  GLfloat backgroundColorBlue = 0;
  GLfloat backgroundColorAlpha = 1;
  TavrelGPUImageRotationMode inputRotation = kTavrelGPUImageNoRotation;
  std::atomic<TavrelGPUImageFillModeType> fillMode_ = kTavrelGPUImageFillModePreserveAspectRatio;
  std::atomic<double> aspectRatio_ = 0;
  std::atomic<bool> enabled_ = true;

  // Between the main thread and the video-processing queue.
  mutable std::mutex geometryMutex_;
  Rect boundsForBackgroundThread_;
  double scaleForBackgroundThread_ = 1;
  Size boundsSizeAtFrameBufferEpoch;
  Size sizeInPixels_;
};

}  // namespace tavrel
