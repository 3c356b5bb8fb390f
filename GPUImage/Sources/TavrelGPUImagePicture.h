#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "GPUImage/TavrelGPUImageOutput.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// A still picture as a source. Uploaded once; each processing pass hands the same texture to all targets, with an
/// indefinite frame time. Any thread.
class TAVREL_API TavrelGPUImagePicture : public TavrelGPUImageOutput {
 public:
  /// Decodes a PNG, a JPEG or the first frame of a GIF. A file that cannot be decoded, like an empty image, stops the
  /// program; use `ImageSource` to handle errors.
  explicit TavrelGPUImagePicture(const std::filesystem::path& url);
  explicit TavrelGPUImagePicture(const Data& data);
  /// `smoothlyScaleOutput` adds mipmaps, for targets that draw the picture much smaller. `removePremultiplication`
  /// divides colours by alpha if the image's layout has to be converted.
  explicit TavrelGPUImagePicture(const std::shared_ptr<Image>& image, bool smoothlyScaleOutput = false,
                                 bool removePremultiplication = false);
  ~TavrelGPUImagePicture() override;

  /// Replaces the image; returns after the upload. An empty image stops the program.
  void updateWithCGImage(const std::shared_ptr<Image>& image, bool smoothlyScaleOutput = false,
                         bool removePremultiplication = false);

  /// Schedules a pass on the video-processing queue.
  void processImage();
  /// The same; `completion` is called on that queue after the pass. False, with nothing scheduled, if an earlier pass
  /// is in flight.
  bool processImageWithCompletionHandler(std::function<void()> completion);
  /// Passes `finalFilter`'s image of the pass to `block`, on the video-processing queue; has no effect if an earlier
  /// pass is in flight.
  void processImageUpToFilter(const std::shared_ptr<TavrelGPUImageOutput>& finalFilter,
                              std::function<void(std::shared_ptr<Image>)> block);
  /// The size given to targets: the image's in pixels, reduced if it exceeds the maximum texture size.
  Size outputImageSize() const;

  using TavrelGPUImageOutput::addTarget;
  /// If processing was requested before, announces a frame to the new target at once, without a framebuffer.
  void addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget, Index atTextureLocation) override;
  void removeAllTargets() override;

 private:
  struct Implementation;

  void releaseTexture();
  void updateWithDeepImage(const Image& image, const TavrelGPUTextureOptions& options);
  template <typename Upload>
  void replaceImage(Size size, bool smoothlyScaleOutput, const Upload& uploadPixels);
  void upload(Size textureSize, const TavrelGPUTextureOptions& options, GLenum format, const void* pixels);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
