#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MediaSettings.h"
#include "Platform/Media/MediaType.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

class InputPipeline;

/// One track of an `AssetWriter`; encodes samples on its own thread.
///
/// Every sample that `append` accepts is encoded. At most four frames, or 1 s of audio (10 s in real-time mode), wait
/// for the encoder; `isReadyForMoreMediaData` is false while that queue is full, before writing starts and after the
/// end. Frame times must strictly increase. Audio buffers need not be contiguous: an overlap is cut off, a gap of more
/// than 5 ms is filled with silence, and smaller deviations are absorbed without accumulating. In real-time mode,
/// lateness under 0.4 s is ignored until it has lasted 0.5 s, as such buffers were merely stamped late. The first 20 ms
/// of AAC fade in. Any thread.
class TAVREL_API AssetWriterInput {
 public:
  /// Without settings, samples are stored as they are: PCM (QuickTime and Matroska) or packets of one codec; the writer
  /// fails if its file cannot store the first one like that. Settings (MediaSettings.h) are checked when the input is
  /// added to a writer; with them, compressed audio is decoded first. Subtitles have no settings and need
  /// `sourceFormatHint`, the format of their packets, which are stored as they are; texts are converted to the format
  /// that the file takes. Files that stay fragmented (`setStaysFragmented`) have no subtitles.
  static std::shared_ptr<AssetWriterInput> create(MediaType mediaType, std::optional<Dictionary> settings,
                                                  std::shared_ptr<const FormatDescription> sourceFormatHint = nullptr);

  AssetWriterInput(const AssetWriterInput&) = delete;
  AssetWriterInput& operator=(const AssetWriterInput&) = delete;
  ~AssetWriterInput();

  MediaType mediaType() const;

  /// True selects an encoder preset that keeps up with a camera, and a short delay: libx264's "veryfast", which looks
  /// five frames ahead, 18 ms per 1280×720 frame on one server core ("superfast": 13 ms and up to twice the file size).
  /// False selects a better one ("faster", 33 ms). kVideoPresetKey overrides both. Set before writing starts.
  bool expectsMediaDataInRealTime() const;
  void setExpectsMediaDataInRealTime(bool expects);
  /// How players rotate the frames (QuickTime and MP4; ignored in Matroska). Set before writing starts.
  AffineTransform transform() const;
  void setTransform(const AffineTransform& transform);
  /// The language of what is spoken, by ISO 639-2 as "fra"; empty for none. Set before writing starts.
  std::string languageCode() const;
  void setLanguageCode(std::string code);
  /// The track's timescale. 0, the default, derives it from the first sample: its timescale, multiplied to at least 600
  /// and limited to 1000000; or 720000 if no frame comes in the first 0.2 s. Matroska always uses milliseconds. Set
  /// before writing starts.
  std::int32_t mediaTimeScale() const;
  void setMediaTimeScale(std::int32_t timescale);
  /// The encoded size: that of the settings, rounded up to even numbers (the edge is repeated). Zero for audio and
  /// without a size in the settings.
  Size encodedSize() const;

  bool isReadyForMoreMediaData() const;
  /// Queues a sample and returns at once. PCM must not be changed afterwards; a frame may. False, without affecting the
  /// file, if the input is not ready, the session has not started, or the sample is invalid, of another kind, or not
  /// later than the one before. A sample before the session's start is left out and counts as success.
  bool append(const std::shared_ptr<SampleBuffer>& sampleBuffer);
  /// Announces that no more samples follow.
  void markAsFinished();

  /// Calls `block` on `queue` repeatedly while the input is ready, until it is marked finished or the writer ends. The
  /// block should append until the input is not ready. Outside real-time mode such an input pauses while it is more
  /// than a second ahead of another one.
  void requestMediaDataWhenReady(const std::shared_ptr<DispatchQueue>& queue, std::function<void()> block);
  /// Waits up to `timeout` until the input is ready or finished, or the writer has ended. On the main thread it runs
  /// the main queue's blocks meanwhile. Returns whether the input is ready.
  bool waitUntilReady(std::chrono::nanoseconds timeout);

 private:
  friend class AssetWriter;
  friend class AssetWriterInputPixelBufferAdaptor;

  explicit AssetWriterInput(std::shared_ptr<InputPipeline> pipeline);

  std::shared_ptr<InputPipeline> pipeline_;
};

}  // namespace tavrel
