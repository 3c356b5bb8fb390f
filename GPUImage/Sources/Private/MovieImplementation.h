#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "GPUImage/Destinations/TavrelGPUImageMovieWriter.h"
#include "GPUImage/Private/SharedValue.h"
#include "GPUImage/Sources/Private/MoviePacer.h"
#include "GPUImage/Sources/Private/MoviePass.h"
#include "GPUImage/Sources/Private/PlayerItemLoop.h"
#include "GPUImage/Sources/TavrelGPUImageMovie.h"
#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// Conducts the reading: a pass or the player item gives the pictures, which go up and out to the targets.
struct TavrelGPUImageMovie::Implementation {
  explicit Implementation(TavrelGPUImageMovie& owner) : movie(owner) {}

  const std::shared_ptr<DispatchQueue>& readingQueue();
  void processPlayerItem(const std::shared_ptr<PlayerItem>& item);
  void processAsset();
  void letWriterRead(TavrelGPUImageMovieWriter& writer, const std::shared_ptr<MoviePass>& pass);
  void readToTheEnd(MoviePass& pass);
  bool readNextVideoFrame(MoviePass& pass);
  bool readNextAudioSample(MoviePass& pass);
  void processMovieFrame(const SampleBuffer& movieSampleBuffer, MediaTime sampleTime);
  void processMovieFrame(const std::shared_ptr<PixelBuffer>& movieFrame, MediaTime sampleTime, bool takesPlanes);

  TavrelGPUImageMovie& movie;
  SharedValue<std::filesystem::path> url;
  SharedValue<std::shared_ptr<Asset>> asset;
  SharedValue<std::shared_ptr<PlayerItem>> playerItem;
  SharedValue<std::shared_ptr<AssetReader>> reader;
  SharedValue<std::shared_ptr<TavrelGPUImageMovieWriter>> synchronizedMovieWriter;
  SharedValue<std::weak_ptr<TavrelGPUImageMovieDelegate>> delegate;
  SharedValue<MediaTime> processingFrameTime;
  std::once_flag readingQueueIsMade;
  std::shared_ptr<DispatchQueue> madeReadingQueue;
  PlayerItemLoop player;
  MoviePacer pacer;

  std::atomic<bool> keepLooping = false;
  std::atomic<bool> audioEncodingIsFinished = false;
  std::atomic<bool> videoEncodingIsFinished = false;
  std::atomic<bool> runBenchmark = false;
  std::atomic<bool> playAtActualSpeed = false;
  std::atomic<bool> shouldRepeat = false;
  std::atomic<bool> reverseVideo = false;
  std::atomic<double> startTime = 0;
  std::atomic<double> duration = 0;
};

}  // namespace tavrel
