#pragma once

#include <cstdint>
#include <memory>

#include "Platform/Capture/Virtual/Private/BgraCanvas.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AssetReaderTrackOutput.h"

namespace tavrel {

class SampleBuffer;

/// The pictures of a movie as an endless loop, upright, decoded when they are due. One thread at a time.
class SceneMovie {
 public:
  /// Fails when the asset has no pictures or its first one cannot be decoded.
  static Expected<std::unique_ptr<SceneMovie>> open(std::shared_ptr<const Asset> asset);

  /// Goes to the picture that is shown at `time` seconds after the loop's start; back to the start when that is earlier
  /// than before. True when it is another picture than at the last call.
  Expected<bool> seek(double time);
  /// The picture at the place last sought, valid until the next seek.
  BgraCanvas picture() const { return shown_; }

 private:
  SceneMovie() = default;

  Expected<void> rewind(double passStart);
  double currentEnd() const;
  void turnUpright();

  std::shared_ptr<const Asset> asset_;
  std::shared_ptr<const AssetTrack> track_;
  std::shared_ptr<AssetReader> reader_;
  std::shared_ptr<AssetReaderOutput> output_;
  std::shared_ptr<SampleBuffer> current_;
  std::shared_ptr<SampleBuffer> next_;
  double passStart_ = 0;  // when the current run through the movie began
  double lastSought_ = 0;
  BgraCanvas shown_;  // the bytes of `current_` or of `upright_`
  BgraPicture upright_;
  BgraPicture mirrored_;
};

}  // namespace tavrel
