#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AssetReaderTrackOutput.h"
#include "Platform/Media/SampleBuffer.h"

namespace {

/// More of a file only costs time: its samples go the same ways.
constexpr int kMostSamples = 40;

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  tavrel::ConsoleLog::setSink([](std::string_view) {});
  const int file = memfd_create("movie", MFD_CLOEXEC);
  if (file < 0 || write(file, bytes, size) != static_cast<ssize_t>(size)) __builtin_trap();
  const auto asset = tavrel::Asset::create("/proc/self/fd/" + std::to_string(file),
                                           {.prefersPreciseDurationAndTiming = size % 2 == 0});
  if (asset) {
    for (const auto& track : (*asset)->tracks()) {
      // A large picture in a small file is a damaged header; it only costs time.
      if (track->naturalSize().width * track->naturalSize().height > 1 << 20) continue;
      readTrack(*asset, track, false, false);
      readTrack(*asset, track, false, true);
      readTrack(*asset, track, true, false);
    }
  }
  close(file);
  return 0;
}
