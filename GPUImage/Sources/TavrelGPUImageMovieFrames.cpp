// How a movie's pictures enter the graph, and the path on which a player item gives them.
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include <chrono>
#include <utility>

#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/Sources/TavrelGPUImageMovie.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Graphics/TextureCache.h"
#include "Platform/Tracing/FrameTrace.h"
#include "Platform/Tracing/TraceNames.h"

namespace tavrel {
namespace {

/// How long before a player item's pictures are due it should say so, in seconds.
constexpr double kAdvanceInterval = 0.1;

}  // namespace

void TavrelGPUImageMovie::processMovieFrame(const SampleBuffer& movieSampleBuffer) {
  MediaTime time = movieSampleBuffer.outputPresentationTimeStamp();
  if (isReversed_) {
    const auto index = static_cast<std::size_t>(currentIndex_.load());
    time = index < videoPts_.size() ? videoPts_[index] : MediaTime::zero();
  }
  ++currentIndex_;
  {
    const std::lock_guard lock(mutex_);
    processingFrameTime_ = time;
  }
  if (const auto movieFrame = movieSampleBuffer.imageBuffer()) processMovieFrame(movieFrame, time);
}

void TavrelGPUImageMovie::processMovieFrame(const std::shared_ptr<PixelBuffer>& movieFrame, MediaTime withSampleTime) {
  const FrameTrace::Scope trace(FrameTrace::currentOrArriving());
  if (Tracer::isOn()) Tracer::count(TraceNames::shared().framesIn);
  const NodeSpan span(*this);
  std::shared_ptr<PixelBuffer> frame = movieFrame;
  if (const auto listener = delegate()) frame = listener->didOutputPixelBuffer(movieFrame, withSampleTime);
  if (!frame) return;

  const auto start = std::chrono::steady_clock::now();
  TavrelGPUImageContext::useImageProcessingContext();
  if (TavrelGPUImageContext::supportsFastTextureUpload()) {
    uploadAsTexture(frame, withSampleTime);
  } else {
    uploadBytes(frame, withSampleTime);
  }
  if (!runBenchmark_) return;
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  ConsoleLog::write("Current frame time : {:f} ms", took.count() * 1000.0);
}

void TavrelGPUImageMovie::uploadAsTexture(const std::shared_ptr<PixelBuffer>& movieFrame, MediaTime time) {
  const auto width = static_cast<GLsizei>(movieFrame->width());
  const auto height = static_cast<GLsizei>(movieFrame->height());
  movieFrame->lockBaseAddress(PixelBufferLock::readOnly);
  TextureCache& cache = *TavrelGPUImageContext::sharedImageProcessingContext()->coreVideoTextureCache();
  auto texture =
      cache.createTextureFromPixelBuffer(movieFrame, GL_RGBA, width, height, GL_BGRA_EXT, GL_UNSIGNED_BYTE, 0);
  if (!texture) {
    ConsoleLog::write("Movie CVOpenGLESTextureCacheCreateTextureFromImage failed (error: {})", texture.error().code);
    fatalAssertion("Camera failure");
  }
  glActiveTexture(GL_TEXTURE4);
  glBindTexture(GL_TEXTURE_2D, (*texture)->name());
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);

  const Size size = {static_cast<double>(width), static_cast<double>(height)};
  const GLuint name = (*texture)->name();
  // The buffer goes back to its pool only when the last reader, perhaps on another queue, has drawn the frame.
  auto owner = std::make_shared<std::pair<std::shared_ptr<PixelBuffer>, std::shared_ptr<TextureCacheTexture>>>(
      movieFrame, std::move(*texture));
  setOutputFramebuffer(std::make_shared<TavrelGPUImageFramebuffer>(size, name, std::move(owner)));
  deliver(size, time);
  movieFrame->unlockBaseAddress(PixelBufferLock::readOnly);
}

void TavrelGPUImageMovie::uploadBytes(const std::shared_ptr<PixelBuffer>& movieFrame, MediaTime time) {
  const Size size = {static_cast<double>(movieFrame->width()), static_cast<double>(movieFrame->height())};
  movieFrame->lockBaseAddress(PixelBufferLock::readOnly);
  const TavrelGPUTextureOptions options = outputTextureOptions();
  const auto framebuffer =
      TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(size, options, true);
  setOutputFramebuffer(framebuffer);
  const std::size_t bytesPerPixel = movieFrame->width() > 0 ? movieFrame->bytesPerRow() / movieFrame->width() : 0;
  const std::size_t rowLength = bytesPerPixel > 0 ? movieFrame->bytesPerRow() / bytesPerPixel : 0;
  glActiveTexture(GL_TEXTURE4);
  glBindTexture(GL_TEXTURE_2D, framebuffer->texture());
  glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(options.internalFormat), static_cast<GLsizei>(rowLength),
               static_cast<GLsizei>(movieFrame->height()), 0, options.format, options.type, movieFrame->baseAddress());
  deliver(size, time);
  movieFrame->unlockBaseAddress(PixelBufferLock::readOnly);
}

void TavrelGPUImageMovie::deliver(Size size, MediaTime time) {
  handOver({.frameTime = time, .size = size, .sizeFirst = true, .toIgnoredTarget = HandOver::ToIgnoredTarget::frame});
}

void TavrelGPUImageMovie::processPlayerItem() {
  const auto weakSelf = weak_from_this();
  const auto self = std::static_pointer_cast<TavrelGPUImageMovie>(shared_from_this());
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    const auto link = DisplayLink::create([weakSelf](DisplayLink& sender) {
      if (const auto movie = std::static_pointer_cast<TavrelGPUImageMovie>(weakSelf.lock())) {
        movie->displayLinkCallback(sender);
      }
    });
    link->addToMainRunLoop();
    link->setPaused(true);

    const PixelFormat format =
        TavrelGPUImageContext::supportsFastTextureUpload() ? PixelFormat::biPlanar420FullRange : PixelFormat::bgra32;
    const auto output = PlayerItemVideoOutput::create(
        {{kPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(static_cast<std::uint32_t>(format))}});
    output->setDelegate(self, TavrelGPUImageContext::sharedContextQueue());
    {
      const std::lock_guard lock(mutex_);
      displayLink_ = link;
      playerItemOutput_ = output;
    }
    output->requestNotificationOfMediaDataChange(kAdvanceInterval);
    playerItem()->addOutput(output);
  });
}

void TavrelGPUImageMovie::outputMediaDataWillChange(PlayerItemVideoOutput&) {
  const std::lock_guard lock(mutex_);
  if (displayLink_) displayLink_->setPaused(false);
}

void TavrelGPUImageMovie::displayLinkCallback(DisplayLink& sender) {
  const double nextRefresh = sender.timestamp() + sender.duration();
  const auto output = [this] {
    const std::lock_guard lock(mutex_);
    return playerItemOutput_;
  }();
  processPixelBufferAtTime(output ? output->itemTimeForHostTime(nextRefresh) : MediaTime::zero());
}

void TavrelGPUImageMovie::processPixelBufferAtTime(MediaTime outputItemTime) {
  const auto output = [this] {
    const std::lock_guard lock(mutex_);
    return playerItemOutput_;
  }();
  if (!output || !output->hasNewPixelBufferForItemTime(outputItemTime)) return;
  const auto pixelBuffer = output->copyPixelBufferForItemTime(outputItemTime);
  if (!pixelBuffer) return;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { processMovieFrame(pixelBuffer, outputItemTime); });
}

std::filesystem::path TavrelGPUImageMovie::url() const {
  const std::lock_guard lock(mutex_);
  return url_;
}

void TavrelGPUImageMovie::setUrl(const std::filesystem::path& newValue) {
  const std::lock_guard lock(mutex_);
  url_ = newValue;
}

std::shared_ptr<Asset> TavrelGPUImageMovie::asset() const {
  const std::lock_guard lock(mutex_);
  return asset_;
}

void TavrelGPUImageMovie::setAsset(const std::shared_ptr<Asset>& newValue) {
  const std::lock_guard lock(mutex_);
  asset_ = newValue;
}

std::shared_ptr<PlayerItem> TavrelGPUImageMovie::playerItem() const {
  const std::lock_guard lock(mutex_);
  return playerItem_;
}

void TavrelGPUImageMovie::setPlayerItem(const std::shared_ptr<PlayerItem>& newValue) {
  const std::lock_guard lock(mutex_);
  playerItem_ = newValue;
}

std::shared_ptr<AssetReader> TavrelGPUImageMovie::assetReader() const {
  const std::lock_guard lock(mutex_);
  return reader_;
}

AssetReaderStatus TavrelGPUImageMovie::readerStatus() const {
  const auto reader = assetReader();
  return reader ? reader->status() : AssetReaderStatus::unknown;
}

std::shared_ptr<TavrelGPUImageMovieWriter> TavrelGPUImageMovie::synchronizedMovieWriter() const {
  const std::lock_guard lock(mutex_);
  return synchronizedMovieWriter_;
}

std::shared_ptr<TavrelGPUImageMovieDelegate> TavrelGPUImageMovie::delegate() const {
  const std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void TavrelGPUImageMovie::setDelegate(const std::shared_ptr<TavrelGPUImageMovieDelegate>& newValue) {
  const std::lock_guard lock(mutex_);
  delegate_ = newValue;
}

}  // namespace tavrel
