#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MediaSettings.h"
#include "Platform/Media/MediaType.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

class InputPipeline;

/// One track of an `AssetWriter`: takes samples, encodes them on a thread of its own.
///
/// Nothing is dropped inside: what `append` accepted is encoded. At most a few pictures, or about a second of sound,
/// wait for the encoder; `isReadyForMoreMediaData` is false while no more fits, before writing starts and after
/// the end. Pictures must come with strictly increasing times. Sound may come in pieces that do not
/// quite meet: a piece that overlaps what was written loses the overlap, a gap of more than 5 ms is filled with
/// silence, and smaller deviations are absorbed without adding up; in real time so are buffers that are up to 0.4 s
/// late now and then, for they were only stamped late. AAC's first 20 ms fade in. Any thread.
class TAVREL_API AssetWriterInput {
 public:
  /// Without settings samples are stored as they come: PCM (QuickTime and Matroska) or packets of one codec.
  /// Settings: see MediaSettings.h; they are checked when the input is added to a writer. With settings, sound may also
  /// come as packets of another coding, which are decoded first.
  static std::shared_ptr<AssetWriterInput> create(MediaType mediaType, std::optional<Dictionary> settings);

  AssetWriterInput(const AssetWriterInput&) = delete;
  AssetWriterInput& operator=(const AssetWriterInput&) = delete;
  ~AssetWriterInput();

  MediaType mediaType() const;

  /// True chooses an encoder setting without delay that keeps up with a camera beside the drawing: libx264's
  /// "superfast" takes 13 ms of one server core for a 1280×720 picture ("ultrafast" 7 ms and half as much again of file
  /// size, "veryfast" 18 ms and half the size). False chooses a better one ("faster", 33 ms). kVideoPresetKey overrides
  /// both. Before writing starts.
  bool expectsMediaDataInRealTime() const;
  void setExpectsMediaDataInRealTime(bool expects);
  /// How players turn the pictures (QuickTime and MP4; Matroska has no place for it). Before writing starts.
  AffineTransform transform() const;
  void setTransform(const AffineTransform& transform);
  /// Units in a second of the track's time stamps; 0 chooses by the first sample: its own timescale, multiplied to at
  /// least 600, or 1000000 where it is finer than that; 720000 when no picture came in the first 0.2 s. Matroska always
  /// counts milliseconds. Before writing starts.
  std::int32_t mediaTimeScale() const;
  void setMediaTimeScale(std::int32_t timescale);
  /// The size that is encoded: the asked one, rounded up to even numbers (the edge is repeated). Zero for sound and
  /// where the settings give no size.
  Size encodedSize() const;

  bool isReadyForMoreMediaData() const;
  /// Hands over a sample and returns at once. PCM must not be changed afterwards; a picture may. False, without harm to
  /// the file, when the input is not ready or the session has not started, and for a sample that is not valid, not of
  /// this track's kind, or not later than the one before. A sample before the session's start is left out, which counts
  /// as success.
  bool append(const std::shared_ptr<SampleBuffer>& sampleBuffer);
  /// No more samples come.
  void markAsFinished();

  /// Calls `block` on `queue` whenever the input is or becomes ready, again and again while it stays so, until the
  /// input is marked finished or the writer ends. The block should append until the input is not ready. Unless it works
  /// in real time, an input that is asked so waits while it is more than a second ahead of another one that is asked
  /// and delivers.
  void requestMediaDataWhenReady(const std::shared_ptr<DispatchQueue>& queue, std::function<void()> block);
  /// Waits until the input is ready, has been marked finished or the writer has ended, `timeout` at most. On the main
  /// thread the main queue's blocks run meanwhile. Returns whether the input is ready.
  bool waitUntilReady(std::chrono::nanoseconds timeout);

 private:
  friend class AssetWriter;
  friend class AssetWriterInputPixelBufferAdaptor;

  explicit AssetWriterInput(std::shared_ptr<InputPipeline> pipeline);

  std::shared_ptr<InputPipeline> pipeline_;
};

}  // namespace tavrel
