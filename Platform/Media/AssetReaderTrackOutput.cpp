#include "Platform/Media/AssetReaderTrackOutput.h"

#include <string>
#include <utility>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Graphics/PixelBufferPool.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/Private/BgraConverter.h"
#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/PcmConverter.h"
#include "Platform/Media/Private/TrackDecoder.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {
namespace {

template <typename Value>
struct Tag {
  Value value;
  std::string_view text;
};

constexpr Tag<AVColorPrimaries> kPrimaries[] = {{AVCOL_PRI_BT709, kColorPrimariesITU_R_709_2},
                                                {AVCOL_PRI_SMPTE170M, kColorPrimariesSMPTE_C},
                                                {AVCOL_PRI_SMPTE240M, kColorPrimariesSMPTE_C},
                                                {AVCOL_PRI_BT470BG, kColorPrimariesEBU_3213},
                                                {AVCOL_PRI_BT2020, kColorPrimariesITU_R_2020}};
constexpr Tag<AVColorTransferCharacteristic> kTransfers[] = {{AVCOL_TRC_BT709, kTransferFunctionITU_R_709_2},
                                                             {AVCOL_TRC_SMPTE170M, kTransferFunctionITU_R_709_2},
                                                             {AVCOL_TRC_IEC61966_2_1, kTransferFunctionSRGB},
                                                             {AVCOL_TRC_BT2020_10, kTransferFunctionITU_R_2020},
                                                             {AVCOL_TRC_BT2020_12, kTransferFunctionITU_R_2020}};
constexpr Tag<AVColorSpace> kMatrices[] = {{AVCOL_SPC_BT709, kYCbCrMatrixITU_R_709_2},
                                           {AVCOL_SPC_SMPTE170M, kYCbCrMatrixITU_R_601_4},
                                           {AVCOL_SPC_BT470BG, kYCbCrMatrixITU_R_601_4},
                                           {AVCOL_SPC_BT2020_NCL, kYCbCrMatrixITU_R_2020}};

template <typename Value, std::size_t Count>
void attach(PixelBuffer& buffer, std::string_view key, const Tag<Value> (&tags)[Count], Value value) {
  for (const auto& tag : tags) {
    if (tag.value == value) buffer.setAttachment(std::string(key), std::string(tag.text), true);
  }
}

/// Only what the file itself says: an untagged movie stays untagged.
void attachColors(PixelBuffer& buffer, const AVFrame& picture) {
  attach(buffer, kPixelBufferColorPrimariesKey, kPrimaries, picture.color_primaries);
  attach(buffer, kPixelBufferTransferFunctionKey, kTransfers, picture.color_trc);
  attach(buffer, kPixelBufferYCbCrMatrixKey, kMatrices, picture.colorspace);
}

}  // namespace

struct AssetReaderTrackOutput::Implementation {
  Implementation(std::unique_ptr<TrackDecoder> usedDecoder, const AssetTrack& track,
                 const std::shared_ptr<AssetReader>& usedReader)
      : reader(usedReader),
        decoder(std::move(usedDecoder)),
        isVideo(track.mediaType() == MediaType::video),
        pcm(track.sampleRate(), track.channelCount()) {}

  const std::weak_ptr<AssetReader> reader;
  const std::unique_ptr<TrackDecoder> decoder;
  const bool isVideo;
  bool ended = false;
  BgraConverter bgra;
  std::shared_ptr<PixelBufferPool> pool;
  PcmConverter pcm;

  /// nullptr at the end, and when the reader has stopped reading.
  Expected<std::shared_ptr<SampleBuffer>> next(const AssetReader& reading) {
    const auto goOn = [&reading] { return reading.status() == AssetReader::Status::reading; };
    while (true) {
      const auto frame = decoder->next(goOn);
      if (!frame) return tl::unexpected(frame.error());
      if (!*frame) return nullptr;
      auto sample = isVideo ? imageSample(**frame) : pcm.convert(**frame, decoder->timeBase());
      if (!sample || *sample) return sample;
    }
  }

  Expected<std::shared_ptr<SampleBuffer>> imageSample(const AVFrame& picture) {
    auto buffer = emptyBuffer(static_cast<std::size_t>(picture.width), static_cast<std::size_t>(picture.height));
    if (!buffer) return tl::unexpected(buffer.error());
    (*buffer)->lockBaseAddress(PixelBufferLock::readWrite);
    const auto converted = bgra.convert(picture, (*buffer)->baseAddress(), (*buffer)->bytesPerRow());
    (*buffer)->unlockBaseAddress(PixelBufferLock::readWrite);
    if (!converted) return tl::unexpected(converted.error());
    attachColors(**buffer, picture);
    SampleTiming timing;
    timing.presentationTimeStamp = mediaTimeFrom(picture.pts, decoder->timeBase());
    if (picture.pkt_duration > 0) timing.duration = mediaTimeFrom(picture.pkt_duration, decoder->timeBase());
    return SampleBuffer::createImage(std::move(*buffer), timing);
  }

  Expected<std::shared_ptr<PixelBuffer>> emptyBuffer(std::size_t width, std::size_t height) {
    if (!pool || pool->width() != width || pool->height() != height) {
      auto fitting = PixelBufferPool::create(width, height, PixelFormat::bgra32);
      if (!fitting) return tl::unexpected(fitting.error());
      pool = std::move(*fitting);
    }
    return pool->createPixelBuffer();
  }
};

AssetReaderTrackOutput::AssetReaderTrackOutput(std::shared_ptr<const AssetTrack> track) : track_(std::move(track)) {
  if (!track_) fatalAssertion("An asset reader output needs a track");
}

AssetReaderTrackOutput::~AssetReaderTrackOutput() = default;

Expected<void> AssetReaderTrackOutput::prepare(const std::shared_ptr<AssetReader>& reader) {
  auto decoder = TrackDecoder::open(reader->asset()->path(), track_->trackID());
  if (!decoder) return tl::unexpected(decoder.error());
  implementation_ = std::make_unique<Implementation>(std::move(*decoder), *track_, reader);
  return {};
}

std::shared_ptr<SampleBuffer> AssetReaderTrackOutput::copyNextSampleBuffer() {
  if (!implementation_ || implementation_->ended) return nullptr;
  const auto reader = implementation_->reader.lock();
  if (!reader || reader->status() != AssetReader::Status::reading) return nullptr;
  auto sample = implementation_->next(*reader);
  if (!sample) {
    reader->fail(std::move(sample.error()));
    return nullptr;
  }
  if (!*sample && reader->status() == AssetReader::Status::reading) {
    implementation_->ended = true;
    reader->outputEnded();
  }
  return std::move(*sample);
}

}  // namespace tavrel
