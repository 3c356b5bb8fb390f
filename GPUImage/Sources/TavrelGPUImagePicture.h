#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "GPUImage/TavrelGPUImageOutput.h"
#include "Platform/Foundation/Data.h"

namespace tavrel {

/// A still picture as a source. It is uploaded once; each processing pass hands the same texture to all targets, with
/// the indefinite frame time. Any thread.
class TAVREL_API TavrelGPUImagePicture : public TavrelGPUImageOutput {
 public:
  /// Reads and decodes a file (PNG, JPEG, or the first frame of a GIF). A file that is no picture stops the program,
  /// like an empty image; see `ImageSource` for errors that can be handled.
  explicit TavrelGPUImagePicture(const std::filesystem::path& url);
  explicit TavrelGPUImagePicture(const Data& data);
  /// With `smoothlyScaleOutput` the texture has mipmaps, for targets that draw it much smaller. With
  /// `removePremultiplication` colours are divided by alpha where the image's layout has to be converted.
  explicit TavrelGPUImagePicture(const std::shared_ptr<Image>& image, bool smoothlyScaleOutput = false,
                                 bool removePremultiplication = false);
  ~TavrelGPUImagePicture() override;

  /// Replaces the image; returns after the upload. An image without pixels stops the program.
  void updateWithCGImage(const std::shared_ptr<Image>& image, bool smoothlyScaleOutput = false,
                         bool removePremultiplication = false);

  /// Schedules a pass on the video-processing queue.
  void processImage();
  /// The same; `completion` is called on that queue after the pass. False, with nothing scheduled, while an earlier
  /// pass is still in flight.
  bool processImageWithCompletionHandler(std::function<void()> completion);
  /// Hands `finalFilter`'s picture of the pass to `block`, on the video-processing queue; not at all while an earlier
  /// pass is in flight.
  void processImageUpToFilter(const std::shared_ptr<TavrelGPUImageOutput>& finalFilter,
                              std::function<void(std::shared_ptr<Image>)> block);
  /// What the targets are told: the image's size in pixels, or less when a texture cannot be as large.
  Size outputImageSize() const;

  using TavrelGPUImageOutput::addTarget;
  /// After a processing request the new target is told at once that a frame is ready, without a framebuffer.
  void addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget, Index atTextureLocation) override;
  void removeAllTargets() override;

 private:
  struct Implementation;

  void releaseTexture();
  void upload(Size textureSize, GLenum format, const std::uint8_t* pixels);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
