#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "GPUImage/Destinations/Private/MoviePainter.h"
#include "GPUImage/Destinations/Private/MovieTimeline.h"
#include "GPUImage/Destinations/Private/MovieTrackFeeder.h"
#include "GPUImage/Destinations/Private/MovieWriterTally.h"
#include "GPUImage/Destinations/TavrelGPUImageMovieWriter.h"
#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Media/AssetWriterInputPixelBufferAdaptor.h"

namespace tavrel {

class SampleBuffer;

/// Conducts a recording: the painter draws, the timeline places, the feeders of both tracks take what comes of it.
struct TavrelGPUImageMovieWriter::Implementation {
  Implementation(std::filesystem::path url, Size size, std::string_view type)
      : movieURL(std::move(url)), fileType(type), painter(size) {}

  void initializeMovieWithOutputSettings(const std::optional<Dictionary>& outputSettings);
  void addVideoTrack(const std::optional<Dictionary>& outputSettings);
  void addTrack(MovieTrackFeeder& feeder, const std::shared_ptr<AssetWriterInput>& track);
  AssetWriterStatus status() const { return assetWriter ? assetWriter->status() : AssetWriterStatus::unknown; }
  bool isWriting() const { return status() == AssetWriterStatus::writing; }
  void startWriting();
  /// The time at which the movie begins: `time`, where this stream's sample is the first of all.
  MediaTime startSession(MediaTime time, const MovieTrackFeeder& stream);

  /// The frame's place in the movie; nothing when it is left out.
  std::optional<MediaTime> admitFrame(MediaTime time);
  bool claimFrameInFlight(MediaTime time);
  void encodeFrame(TavrelGPUImageFramebuffer& framebuffer, MediaTime time);
  void appendPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime time);
  void dropFrame(int stage, TraceName reason, MediaTime time);

  void callAudioProcessingCallback(SampleBuffer& audioBuffer) const;
  void appendAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer, MediaTime time);
  void releaseAudioBuffer(SampleBuffer& audioBuffer) const;

  const std::filesystem::path movieURL;
  const std::string fileType;
  std::shared_ptr<AssetWriter> assetWriter;
  SharedValue<std::optional<Error>> creationError;  // of the file or a track: nothing will be recorded

  MoviePainter painter;
  MovieTimeline timeline;
  MovieTrackFeeder video{assetWriter};
  MovieTrackFeeder audio{assetWriter};
  MovieWriterTally tally;
  std::shared_ptr<AssetWriterInputPixelBufferAdaptor> assetWriterPixelBufferInput;
  std::shared_ptr<TavrelGPUImageFramebuffer> firstInputFramebuffer;  // of the video-processing queue

  std::atomic<bool> isRecording = false;
  std::atomic<bool> alreadyFinishedRecording = false;
  std::atomic<bool> hasAudioTrack = false;
  std::atomic<bool> encodingLiveVideo = true;
  std::atomic<bool> paused = false;
  std::atomic<bool> enabled = true;
  std::atomic<bool> shouldPassthroughAudio = false;
  std::atomic<bool> shouldInvalidateAudioSampleWhenDone = false;

  // Frames that may be on their way to the writer queue: a producer ahead of it must not fill the memory.
  static constexpr long kMostFramesInFlight = 8;
  DispatchSemaphore framesInFlight{kMostFramesInFlight};

  SharedCallback<std::function<void()>> completionBlock;
  SharedCallback<std::function<void(const Error&)>> failureBlock;
  SharedCallback<AudioProcessingCallback> audioProcessingCallback;
  SharedValue<std::weak_ptr<TavrelGPUImageMovieWriterDelegate>> delegate;
};

}  // namespace tavrel
