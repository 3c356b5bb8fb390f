#pragma once

#include <memory>
#include <mutex>

#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Media/AssetWriterInput.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

class PixelBuffer;
class PixelBufferPool;

/// Appends pixel buffers to a video input, and provides a pool of matching buffers. Any thread.
class TAVREL_API AssetWriterInputPixelBufferAdaptor {
 public:
  /// `sourceAttributes`: kPixelBufferPixelFormatTypeKey, kPixelBufferWidthKey and kPixelBufferHeightKey; by default the
  /// input's.
  static std::shared_ptr<AssetWriterInputPixelBufferAdaptor> create(std::shared_ptr<AssetWriterInput> input,
                                                                    Dictionary sourceAttributes);

  const std::shared_ptr<AssetWriterInput>& assetWriterInput() const { return input_; }
  /// nullptr until writing has started.
  std::shared_ptr<PixelBufferPool> pixelBufferPool();
  /// As `AssetWriterInput::append`. Takes a snapshot: the buffer may be drawn into at once.
  bool append(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime presentationTime);

 private:
  AssetWriterInputPixelBufferAdaptor(std::shared_ptr<AssetWriterInput> input, Dictionary sourceAttributes);

  std::shared_ptr<AssetWriterInput> input_;
  Dictionary sourceAttributes_;
  std::mutex mutex_;
  std::shared_ptr<PixelBufferPool> pool_;
};

}  // namespace tavrel
