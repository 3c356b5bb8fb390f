#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Graphics/PixelFormat.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AssetReaderTrackOutput.h"
#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/SampleBuffer.h"

namespace {

/// More of a file only costs time: its samples go the same ways.
constexpr int kMostSamples = 40;

/// A large picture in a small file is a damaged header; it only costs time.
bool isTooLarge(const tavrel::AssetTrack& track) {
  return track.naturalSize().width * track.naturalSize().height > 1 << 20;
}

void readTrack(const std::shared_ptr<tavrel::Asset>& asset, const std::shared_ptr<const tavrel::AssetTrack>& track,
               bool isStored, bool isRandomAccess) {
  const auto reader = tavrel::AssetReader::create(asset).value();
  const auto output = std::make_shared<tavrel::AssetReaderTrackOutput>(
      track, isStored ? std::nullopt : std::optional<tavrel::Dictionary>(tavrel::Dictionary()));
  output->setSupportsRandomAccess(isRandomAccess);
  reader->addOutput(output);
  if (!reader->startReading()) return;
  tavrel::MediaTime middle = tavrel::MediaTime::zero();
  int count = 0;
  while (const auto sample = output->copyNextSampleBuffer()) {
    if (++count == 3) middle = sample->presentationTimeStamp();
    if (track->mediaType() == tavrel::MediaType::video && !isStored && !sample->imageBuffer()) continue;
    if (count > kMostSamples) return reader->cancelReading();
  }
  if (!isRandomAccess || reader->status() != tavrel::AssetReaderStatus::reading) return;
  output->resetForReadingTimeRanges({{middle, tavrel::MediaTime::make(1, 1)}, {{}, {}}});
  for (int i = 0; i < kMostSamples && output->copyNextSampleBuffer(); ++i) {
  }
  output->markConfigurationAsFinal();
}

std::optional<tavrel::Dictionary> codingOf(const tavrel::AssetTrack& track, bool isCopied, const char* fileType) {
  const bool isStorable = tavrel::AssetWriter::canStore(*track.storedFormat(), fileType);
  if (isStorable && (isCopied || track.mediaType() == tavrel::MediaType::subtitle)) return std::nullopt;
  if (track.mediaType() == tavrel::MediaType::audio) {
    return tavrel::Dictionary{
        {tavrel::kAudioFormatIDKey, static_cast<std::int64_t>(tavrel::AssetWriter::usualAudioFormat(fileType))}};
  }
  return tavrel::Dictionary{{tavrel::kVideoCodecKey, tavrel::AssetWriter::usualVideoCodec(fileType)},
                            {tavrel::kVideoWidthKey, std::int64_t{64}},
                            {tavrel::kVideoHeightKey, std::int64_t{48}},
                            {tavrel::kVideoScalingModeKey, std::string(tavrel::kVideoScalingModeResizeAspect)},
                            {tavrel::kVideoExpectedFrameRateKey, 25.0},
                            {tavrel::kVideoPresetKey, std::string("ultrafast")}};
}

/// The file's tracks into a new movie, as they are or encoded anew, with all that goes beside them.
void transcode(const tavrel::Asset& asset, const std::shared_ptr<tavrel::Asset>& shared, unsigned way) {
  constexpr const char* kTypes[] = {tavrel::kFileTypeQuickTimeMovie, tavrel::kFileTypeMPEG4, tavrel::kFileTypeMatroska,
                                    tavrel::kFileTypeWebM};
  const char* const fileType = kTypes[way % 4];
  const bool isCopied = way / 4 % 2 == 0 || way % 4 == 3;
  const auto path = std::filesystem::temp_directory_path() / ("fuzzed-" + std::to_string(getpid()));
  const auto writer = tavrel::AssetWriter::create(path, fileType);
  if (!writer) __builtin_trap();
  (*writer)->setIndexRoom(tavrel::MediaTime::zero());
  (*writer)->setMetadata(asset.metadata());
  (*writer)->setChapters(asset.chapters());
  (*writer)->setArtwork(asset.artwork());
  const auto reader = tavrel::AssetReader::create(shared).value();
  std::vector<std::pair<std::shared_ptr<tavrel::AssetReaderTrackOutput>, std::shared_ptr<tavrel::AssetWriterInput>>>
      ways;
  for (const auto type : {tavrel::MediaType::video, tavrel::MediaType::audio, tavrel::MediaType::subtitle}) {
    for (const auto& track : asset.tracksWithMediaType(type)) {
      const bool isStorable = tavrel::AssetWriter::canStore(*track->storedFormat(), fileType);
      if (isTooLarge(*track) || (type == tavrel::MediaType::subtitle && !isStorable)) continue;
      const auto coding = codingOf(*track, isCopied, fileType);
      auto input = tavrel::AssetWriterInput::create(type, coding, track->storedFormat());
      if (!(*writer)->addInput(input)) continue;
      constexpr auto kPlanes = static_cast<std::int64_t>(tavrel::PixelFormat::biPlanar420VideoRange);
      const bool isDecoded = coding && type != tavrel::MediaType::subtitle;
      auto output = std::make_shared<tavrel::AssetReaderTrackOutput>(
          track, isDecoded ? std::optional(tavrel::Dictionary{{tavrel::kPixelBufferPixelFormatTypeKey, kPlanes}})
                           : std::nullopt);
      reader->addOutput(output);
      ways.emplace_back(std::move(output), std::move(input));
    }
  }
  if (ways.empty() || !reader->startReading() || !(*writer)->startWriting()) return (*writer)->cancelWriting();
  (*writer)->startSessionAtSourceTime(tavrel::MediaTime::zero());
  for (const auto& [output, input] : ways) {
    for (int count = 0; count < kMostSamples; ++count) {
      const auto sample = output->copyNextSampleBuffer();
      if (!sample || !input->waitUntilReady(std::chrono::seconds(10))) break;
      input->append(sample);
    }
    input->markAsFinished();
  }
  // What is finished can be opened again.
  if ((*writer)->finishWriting() && !tavrel::Asset::create(path)) __builtin_trap();
  std::filesystem::remove(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  tavrel::ConsoleLog::setSink([](std::string_view) {});
  const int file = memfd_create("movie", MFD_CLOEXEC);
  if (file < 0 || write(file, bytes, size) != static_cast<ssize_t>(size)) __builtin_trap();
  const auto asset = tavrel::Asset::create("/proc/self/fd/" + std::to_string(file),
                                           {.prefersPreciseDurationAndTiming = size % 2 == 0});
  if (asset) {
    for (const auto& track : (*asset)->tracks()) {
      if (isTooLarge(*track)) continue;
      readTrack(*asset, track, false, false);
      readTrack(*asset, track, false, true);
      readTrack(*asset, track, true, false);
    }
    transcode(**asset, *asset, static_cast<unsigned>(size / 2));
  }
  close(file);
  return 0;
}
