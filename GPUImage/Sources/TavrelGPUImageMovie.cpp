#include "GPUImage/Sources/TavrelGPUImageMovie.h"

#include <chrono>
#include <utility>

#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/Sources/Private/MovieImplementation.h"
#include "GPUImage/Sources/Private/PicturePlanes.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/AssetReaderTrackOutput.h"
#include "Platform/Tracing/QueueWait.h"

namespace tavrel {
namespace {

std::shared_ptr<TavrelGPUImageFramebuffer> wrap(const std::shared_ptr<PixelBuffer>& movieFrame) {
  TextureCache& cache = *TavrelGPUImageContext::sharedImageProcessingContext()->coreVideoTextureCache();
  const auto texture = cache.createTextureFromPixelBuffer(movieFrame);
  if (!texture) {
    ConsoleLog::write("Movie CVOpenGLESTextureCacheCreateTextureFromImage failed (error: {})", texture.error().code);
    fatalAssertion("Camera failure");
  }
  // The buffer goes back to its pool only when the last reader, perhaps on another queue, has drawn the frame.
  auto framebuffer = std::make_shared<TavrelGPUImageFramebuffer>(*texture);
  FramebufferContents::setFinal(*framebuffer);
  return framebuffer;
}

std::shared_ptr<TavrelGPUImageFramebuffer> copy(PixelBuffer& movieFrame, const TavrelGPUTextureOptions& options) {
  const Size size = {static_cast<double>(movieFrame.width()), static_cast<double>(movieFrame.height())};
  auto framebuffer = TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(size, options, true);
  const std::size_t bytesPerPixel = movieFrame.width() > 0 ? movieFrame.bytesPerRow() / movieFrame.width() : 0;
  const std::size_t rowLength = bytesPerPixel > 0 ? movieFrame.bytesPerRow() / bytesPerPixel : 0;
  framebuffer->uploadPicture(static_cast<GLsizei>(rowLength), static_cast<GLsizei>(movieFrame.height()), options.format,
                             movieFrame.baseAddress());
  return framebuffer;
}

}  // namespace

void TavrelGPUImageMovie::startProcessing() {
  if (const auto item = playerItem()) return implementation_->processPlayerItem(item);
  const std::filesystem::path file = url();
  if (file.empty()) return implementation_->processAsset();

  if (shouldRepeat()) implementation_->keepLooping = true;
  implementation_->pacer.restart();
  const auto inputAsset = Asset::createUnloaded(file, {.prefersPreciseDurationAndTiming = true});
  inputAsset->loadTracksAsynchronously([this, self = shared_from_this(), loading = std::weak_ptr<Asset>(inputAsset)] {
    const auto loaded = loading.lock();
    if (!loaded || loaded->statusOfTracks() != Asset::ValueStatus::loaded) return;
    setAsset(loaded);
    // As long as the movie plays: none of the global queue's few threads.
    implementation_->readingQueue()->async([this, self] { implementation_->processAsset(); });
  });
}

Dictionary TavrelGPUImageMovie::settingsOfSoonestPictures() {
  Dictionary settings = {
      {kPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(static_cast<std::uint32_t>(PixelFormat::bgra32))}};
  if (PicturePlanes::areShownSooner()) settings.emplace(kVideoAllowsPlanesKey, std::int64_t{1});
  return settings;
}

std::shared_ptr<AssetReader> TavrelGPUImageMovie::createAssetReader() {
  const std::shared_ptr<Asset> inputAsset = asset();
  auto reader = AssetReader::create(inputAsset);
  if (!reader) return nullptr;
  const auto videoTracks = inputAsset->tracksWithMediaType(MediaType::video);
  if (!videoTracks.empty()) {
    const Dictionary settings = {
        {kPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(static_cast<std::uint32_t>(PixelFormat::bgra32))}};
    auto output = std::make_shared<AssetReaderTrackOutput>(videoTracks.front(), settings);
    output->setAlwaysCopiesSampleData(false);
    (*reader)->addOutput(std::move(output));
  }
  const auto audioTracks = inputAsset->tracksWithMediaType(MediaType::audio);
  if (!audioTracks.empty() && audioEncodingTarget()) {
    addAudioOutput(**reader, std::make_shared<AssetReaderTrackOutput>(audioTracks.front(), std::nullopt));
  }
  return *reader;
}

void TavrelGPUImageMovie::addAudioOutput(AssetReader& reader, std::shared_ptr<AssetReaderOutput> output) const {
  const auto writer = std::dynamic_pointer_cast<TavrelGPUImageMovieWriter>(audioEncodingTarget());
  if (writer) writer->setShouldInvalidateAudioSampleWhenDone(true);
  output->setAlwaysCopiesSampleData(false);
  reader.addOutput(std::move(output));
}

const std::shared_ptr<DispatchQueue>& TavrelGPUImageMovie::Implementation::readingQueue() {
  std::call_once(readingQueueIsMade, [this] { madeReadingQueue = DispatchQueue::create("tavrel.movie"); });
  return madeReadingQueue;
}

void TavrelGPUImageMovie::Implementation::processAsset() {
  const std::shared_ptr<AssetReader> newReader = movie.createAssetReader();
  reader.set(newReader);
  const auto pass =
      newReader ? std::make_shared<MoviePass>(newReader, movie.audioEncodingTarget(), reverseVideo) : nullptr;
  audioEncodingIsFinished = !pass || !pass->hasSound();
  videoEncodingIsFinished = !pass || !pass->hasPictures();
  if (!pass || !pass->start()) {
    ConsoleLog::write("Error reading from file at URL: {}", url.get().string());
    return;
  }
  if (const auto writer = synchronizedMovieWriter.get()) return letWriterRead(*writer, pass);
  readToTheEnd(*pass);
}

void TavrelGPUImageMovie::Implementation::letWriterRead(TavrelGPUImageMovieWriter& writer,
                                                        const std::shared_ptr<MoviePass>& pass) {
  const auto readingBy = [this, weak = movie.weak_from_this(), pass](auto read) {
    return [this, weak, pass, read] {
      const auto self = weak.lock();
      return self && (this->*read)(*pass);
    };
  };
  writer.setVideoInputReadyCallback(readingBy(&Implementation::readNextVideoFrame));
  writer.setAudioInputReadyCallback(readingBy(&Implementation::readNextAudioSample));
  writer.enableSynchronizationCallbacks();
}

void TavrelGPUImageMovie::Implementation::readToTheEnd(MoviePass& pass) {
  while (pass.isReading() && (!shouldRepeat || keepLooping)) {
    readNextVideoFrame(pass);
    if (!audioEncodingIsFinished) readNextAudioSample(pass);
  }
  if (pass.status() != AssetReaderStatus::completed) return;
  pass.reader().cancelReading();
  if (!keepLooping) return movie.endProcessing();
  reader.set(nullptr);
  DispatchQueue::main()->async([this, self = movie.shared_from_this()] { movie.startProcessing(); });
}

bool TavrelGPUImageMovie::Implementation::readNextVideoFrame(MoviePass& pass) {
  if (!pass.hasPictures()) return false;
  if (pass.endsReversed()) videoEncodingIsFinished = true;
  if (!pass.isReading() || videoEncodingIsFinished) {
    if (synchronizedMovieWriter.get() && pass.status() == AssetReaderStatus::completed) movie.endProcessing();
    return false;
  }
  const auto sample = [&] {
    const TraceSpan span(TraceNames::shared().reading);
    return pass.copyNextPicture();
  }();
  if (!sample) {
    if (keepLooping) return false;
    videoEncodingIsFinished = true;
    if (audioEncodingIsFinished) movie.endProcessing();
    return false;
  }
  if (playAtActualSpeed) pacer.waitFor(sample->outputPresentationTimeStamp());
  const QueueWait wait(FrameTrace::arriving());
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    const FrameTrace::Scope frame = wait.end(TraceNames::shared().videoProcessingQueue);
    processMovieFrame(*sample, pass.takeTimeOf(*sample));
    sample->invalidate();
  });
  return true;
}

bool TavrelGPUImageMovie::Implementation::readNextAudioSample(MoviePass& pass) {
  if (!pass.hasSound()) return false;
  if (!pass.isReading() || audioEncodingIsFinished) {
    // The pictures' side waits for a completed reader; sound is over with any.
    const bool isOver = pass.status() != AssetReaderStatus::unknown && !pass.isReading();
    if (isOver && synchronizedMovieWriter.get()) movie.endProcessing();
    return false;
  }
  if (pass.giveNextSound()) return true;
  if (keepLooping) return false;
  audioEncodingIsFinished = true;
  if (videoEncodingIsFinished) movie.endProcessing();
  return false;
}

void TavrelGPUImageMovie::Implementation::processMovieFrame(const SampleBuffer& movieSampleBuffer,
                                                            MediaTime sampleTime) {
  processingFrameTime.set(sampleTime);
  if (const auto movieFrame = movieSampleBuffer.imageBuffer()) processMovieFrame(movieFrame, sampleTime, true);
}

void TavrelGPUImageMovie::Implementation::processMovieFrame(const std::shared_ptr<PixelBuffer>& movieFrame,
                                                            MediaTime sampleTime, bool takesPlanes) {
  const FrameTrace::Scope trace(FrameTrace::currentOrArriving());
  if (Tracer::isOn()) Tracer::count(TraceNames::shared().framesIn);
  const NodeSpan span(movie);
  std::shared_ptr<PixelBuffer> frame = movieFrame;
  if (const auto listener = delegate.get().lock()) frame = listener->didOutputPixelBuffer(movieFrame, sampleTime);
  if (!frame) return;

  const auto start = std::chrono::steady_clock::now();
  TavrelGPUImageContext::useImageProcessingContext();
  frame->lockBaseAddress(PixelBufferLock::readOnly);
  const bool isPlanar = takesPlanes && frame->planeCount() == 2;
  const auto framebuffer = isPlanar ? PicturePlanes::framebufferOf(frame)
                           : TavrelGPUImageContext::supportsFastTextureUpload()
                               ? wrap(frame)
                               : copy(*frame, movie.outputTextureOptions());
  movie.setOutputFramebuffer(framebuffer);
  movie.handOver({.frameTime = sampleTime,
                  .size = framebuffer->size(),
                  .sizeFirst = true,
                  .toIgnoredTarget = HandOver::ToIgnoredTarget::frame});
  frame->unlockBaseAddress(PixelBufferLock::readOnly);
  if (!runBenchmark) return;
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  ConsoleLog::write("Current frame time : {:f} ms", took.count() * 1000.0);
}

void TavrelGPUImageMovie::Implementation::processPlayerItem(const std::shared_ptr<PlayerItem>& item) {
  const auto self = std::static_pointer_cast<TavrelGPUImageMovie>(movie.shared_from_this());
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    player.processPlayerItem(item, self, [this, weak = std::weak_ptr(self)](DisplayLink& link) {
      const auto alive = weak.lock();
      if (!alive) return;
      const PlayerItemLoop::Picture picture = player.nextPicture(link);
      if (!picture.pixelBuffer) return;
      TavrelRunSynchronouslyOnVideoProcessingQueue(
          [&] { processMovieFrame(picture.pixelBuffer, picture.time, false); });
    });
  });
}

void TavrelGPUImageMovie::outputMediaDataWillChange(PlayerItemVideoOutput&) {
  implementation_->player.setPaused(false);
}

void TavrelGPUImageMovie::enableSynchronizedEncodingUsingMovieWriter(
    const std::shared_ptr<TavrelGPUImageMovieWriter>& movieWriter) {
  implementation_->synchronizedMovieWriter.set(movieWriter);
  if (movieWriter) movieWriter->setEncodingLiveVideo(false);
}

void TavrelGPUImageMovie::cancelProcessing() {
  if (const auto reader = assetReader()) reader->cancelReading();
  endProcessing();
}

void TavrelGPUImageMovie::endProcessing() {
  implementation_->keepLooping = false;
  implementation_->player.setPaused(true);

  for (const auto& target : targets()) target->endProcessing();

  if (const auto writer = implementation_->synchronizedMovieWriter.get()) {
    writer->setVideoInputReadyCallback([] { return false; });
    writer->setAudioInputReadyCallback([] { return false; });
  }
  if (playerItem()) implementation_->player.invalidate();
  if (const auto listener = implementation_->delegate.exchange({}).lock()) listener->didCompletePlayingMovie();
}

}  // namespace tavrel
