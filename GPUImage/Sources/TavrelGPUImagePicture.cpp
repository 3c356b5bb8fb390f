#include "GPUImage/Sources/TavrelGPUImagePicture.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <utility>
#include <vector>

#include "GPUImage/Private/DeepPixels.h"
#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/Sources/Private/PictureLayout.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Imaging/BitmapContext.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel {
namespace {

/// The first picture in `data`; none, with the reason on the console, when there is none.
std::shared_ptr<Image> decodedImage(const Expected<Data>& data) {
  const auto image = data.and_then([](const Data& bytes) { return ImageSource::create(bytes); })
                         .and_then([](const std::shared_ptr<ImageSource>& source) { return source->imageAtIndex(0); });
  if (image) return *image;
  ConsoleLog::write("{}", image.error().description);
  return nullptr;
}

double nextPowerOfTwo(double length) { return std::pow(2.0, std::ceil(std::log2(length))); }

std::vector<std::uint8_t> redrawn(const Image& image, Size textureSize) {
  const auto width = static_cast<std::size_t>(textureSize.width);
  const auto height = static_cast<std::size_t>(textureSize.height);
  std::vector<std::uint8_t> pixels(width * height * 4);
  const auto context =
      BitmapContext::create(pixels.data(), width, height, 8, width * 4,
                            kBitmapByteOrder32Little | static_cast<std::uint32_t>(AlphaInfo::premultipliedFirst));
  if (context) context->drawImage(image, {{0, 0}, {static_cast<double>(width), static_cast<double>(height)}});
  return pixels;
}

}  // namespace

struct TavrelGPUImagePicture::Implementation {
  std::atomic<bool> hasProcessedImage = false;

  // Updates and requests come from any thread.
  std::mutex mutex;
  Size pixelSizeOfImage;
  std::shared_ptr<DispatchSemaphore> imageUpdateSemaphore;
};

TavrelGPUImagePicture::TavrelGPUImagePicture(const std::filesystem::path& url)
    : TavrelGPUImagePicture(decodedImage(readFile(url))) {}

TavrelGPUImagePicture::TavrelGPUImagePicture(const Data& data) : TavrelGPUImagePicture(decodedImage(data)) {}

TavrelGPUImagePicture::TavrelGPUImagePicture(const std::shared_ptr<Image>& image, bool smoothlyScaleOutput,
                                             bool removePremultiplication)
    : implementation_(std::make_unique<Implementation>()) {
  updateWithCGImage(image, smoothlyScaleOutput, removePremultiplication);
}

TavrelGPUImagePicture::~TavrelGPUImagePicture() { releaseTexture(); }

void TavrelGPUImagePicture::releaseTexture() {
  const auto framebuffer = TavrelGPUImageOutput::framebufferForOutput();
  if (!framebuffer) return;
  framebuffer->enableReferenceCounting();
  framebuffer->unlock();
}

void TavrelGPUImagePicture::updateWithCGImage(const std::shared_ptr<Image>& image, bool smoothlyScaleOutput,
                                              bool shouldRemovePremultiplication) {
  implementation_->hasProcessedImage = false;
  if (!image || image->width() == 0 || image->height() == 0) {
    fatalAssertion("Passed image must not be empty - it should be at least 1px tall and wide");
  }
  const Size imageSize = {static_cast<double>(image->width()), static_cast<double>(image->height())};
  Size fittingSize = TavrelGPUImageContext::sizeThatFitsWithinATextureForSize(imageSize);
  fittingSize = {std::max(1.0, fittingSize.width), std::max(1.0, fittingSize.height)};  // of long thin images
  Size textureSize = fittingSize;
  // Mipmaps need powers of two.
  if (smoothlyScaleOutput) textureSize = {nextPowerOfTwo(textureSize.width), nextPowerOfTwo(textureSize.height)};

  const auto deep = TavrelGPUImageContext::deepTextureOptions();
  if (image->bitsPerPixel() == 64 && image->bitsPerComponent() == 16 && fittingSize == imageSize && deep &&
      !smoothlyScaleOutput && !shouldRemovePremultiplication && image->bytesPerRow() == image->width() * 8) {
    return updateWithDeepImage(*image, *deep);
  }
  const bool needsScaling = fittingSize != imageSize || smoothlyScaleOutput;
  const std::optional<PictureLayout> direct = needsScaling ? std::nullopt : directLayoutOf(*image);
  const PictureLayout layout = direct.value_or(redrawnLayout());
  std::vector<std::uint8_t> copy;
  if (!direct) copy = redrawn(*image, textureSize);
  if (shouldRemovePremultiplication && layout.isPremultiplied) {
    if (direct) copy = image->dataProvider()->copyData();
    removePremultiplication(copy, layout);
  }
  // Bytes that need no change are uploaded from where they are.
  const std::uint8_t* const pixels = copy.empty() ? image->dataProvider()->bytes().data() : copy.data();
  // All of it between two passes, of which each shows one image or the other.
  TavrelRunSynchronouslyOnVideoProcessingQueue(
      [&] { replaceImage(fittingSize, smoothlyScaleOutput, [&] { upload(textureSize, {}, layout.format, pixels); }); });
}

void TavrelGPUImagePicture::updateWithDeepImage(const Image& image, const TavrelGPUTextureOptions& options) {
  const Size size = {static_cast<double>(image.width()), static_cast<double>(image.height())};
  const std::uint8_t* const pixels = image.dataProvider()->bytes().data();
  std::vector<float> components;
  if (options.type == GL_FLOAT) components = floatsOfWords(pixels, image.width() * image.height() * 4);
  const void* const uploaded = components.empty() ? static_cast<const void*>(pixels) : components.data();
  TavrelRunSynchronouslyOnVideoProcessingQueue(
      [&] { replaceImage(size, false, [&] { upload(size, options, options.format, uploaded); }); });
}

template <typename Upload>
void TavrelGPUImagePicture::replaceImage(Size size, bool smoothlyScaleOutput, const Upload& uploadPixels) {
  releaseTexture();
  setShouldSmoothlyScaleOutput(smoothlyScaleOutput);
  uploadPixels();
  const std::lock_guard lock(implementation_->mutex);
  implementation_->pixelSizeOfImage = size;
  implementation_->imageUpdateSemaphore = std::make_shared<DispatchSemaphore>(1);
}

void TavrelGPUImagePicture::upload(Size textureSize, const TavrelGPUTextureOptions& options, GLenum format,
                                   const void* pixels) {
  TavrelGPUImageContext::useImageProcessingContext();
  const auto framebuffer =
      TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(textureSize, options, true);
  framebuffer->disableReferenceCounting();
  setOutputFramebuffer(framebuffer);
  framebuffer->uploadPicture(static_cast<GLsizei>(textureSize.width), static_cast<GLsizei>(textureSize.height), format,
                             pixels);
  if (shouldSmoothlyScaleOutput()) {
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glGenerateMipmap(GL_TEXTURE_2D);
  }
  glBindTexture(GL_TEXTURE_2D, 0);
}

void TavrelGPUImagePicture::processImage() { processImageWithCompletionHandler({}); }

Size TavrelGPUImagePicture::outputImageSize() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->pixelSizeOfImage;
}

bool TavrelGPUImagePicture::processImageWithCompletionHandler(std::function<void()> completion) {
  implementation_->hasProcessedImage = true;
  const std::shared_ptr<DispatchSemaphore> semaphore = [this] {
    const std::lock_guard lock(implementation_->mutex);
    return implementation_->imageUpdateSemaphore;
  }();
  if (!semaphore->tryWait()) return false;
  TavrelRunAsynchronouslyOnVideoProcessingQueue(
      [this, self = shared_from_this(), semaphore, completion = std::move(completion)] {
        const NodeSpan span(*this);
        handOver({.frameTime = MediaTime::indefinite(),
                  .size = outputImageSize(),
                  .sizeFirst = true,
                  .oneByOne = true,
                  .saysColored = true,
                  .toIgnoredTarget = HandOver::ToIgnoredTarget::frame});
        semaphore->signal();
        if (completion) completion();
      });
  return true;
}

void TavrelGPUImagePicture::processImageUpToFilter(const std::shared_ptr<TavrelGPUImageOutput>& finalFilter,
                                                   std::function<void(std::shared_ptr<Image>)> block) {
  finalFilter->useNextFrameForImageCapture();
  processImageWithCompletionHandler(
      [finalFilter, block = std::move(block)] { block(finalFilter->imageFromCurrentFramebuffer()); });
}

void TavrelGPUImagePicture::addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget, Index atTextureLocation) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageOutput::addTarget(newTarget, atTextureLocation);
    if (!implementation_->hasProcessedImage) return;
    newTarget->setInputSize(outputImageSize(), atTextureLocation);
    sendFrame(*newTarget, MediaTime::indefinite(), atTextureLocation);
  });
}

void TavrelGPUImagePicture::removeAllTargets() {
  TavrelGPUImageOutput::removeAllTargets();
  implementation_->hasProcessedImage = false;
}

}  // namespace tavrel
