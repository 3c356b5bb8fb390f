#include "Support/RecordingObservation.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "TavrelCaptureBase.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {
namespace {

/// Why the track could not be read to its end.
std::string forEachSample(const std::filesystem::path& movie, MediaType mediaType,
                          const std::function<void(SampleBuffer&)>& action) {
  const auto asset = Asset::create(movie);
  if (!asset) return asset.error().description;
  const auto tracks = (*asset)->tracksWithMediaType(mediaType);
  if (tracks.size() != 1) return "there is not one track of each kind";
  const auto reader = AssetReader::create(*asset);
  if (!reader) return reader.error().description;
  const auto output = std::make_shared<AssetReaderTrackOutput>(tracks[0]);
  (*reader)->addOutput(output);
  if (!(*reader)->startReading()) return "reading does not start";
  while (const auto sample = output->copyNextSampleBuffer()) action(*sample);
  if ((*reader)->status() == AssetReaderStatus::completed) return {};
  return (*reader)->error() ? (*reader)->error()->description : "reading does not end";
}

/// Of every eighth pixel each way, in green.
double brightness(const PixelBuffer& picture, const std::uint8_t* bytes) {
  double sum = 0;
  int count = 0;
  for (std::size_t y = 0; y < picture.height(); y += 8) {
    for (std::size_t x = 0; x < picture.width(); x += 8, ++count) sum += bytes[y * picture.bytesPerRow() + x * 4 + 1];
  }
  return sum / count;
}

}  // namespace

RecordingObservation RecordingObservation::of(const std::filesystem::path& movie) {
  RecordingObservation seen;
  bool wasFlash = false;
  seen.error = forEachSample(movie, MediaType::video, [&](SampleBuffer& sample) {
    const auto picture = sample.imageBuffer();
    picture->lockBaseAddress(PixelBufferLock::readOnly);
    const std::uint8_t* const bytes = picture->baseAddress();
    const auto width = static_cast<int>(picture->width());
    const auto height = static_cast<int>(picture->height());
    const auto counter = SyntheticScene::decodeFrameCounter(bytes, picture->bytesPerRow(), width, height);
    const bool isFlash = SyntheticScene::isFlash(bytes, picture->bytesPerRow(), width, height);
    seen.darkest = std::min(seen.darkest, brightness(*picture, bytes));
    picture->unlockBaseAddress(PixelBufferLock::readOnly);

    const double time = sample.presentationTimeStamp().seconds();
    // A flash whose first frame was dropped says nothing about when it began.
    const bool isConsecutive =
        counter && !seen.counters.empty() && seen.counters.back() && *counter == *seen.counters.back() + 1;
    if (isFlash && !wasFlash && isConsecutive) seen.flashes.push_back(time);
    wasFlash = isFlash;
    seen.frameTimes.push_back(time);
    seen.counters.push_back(counter);
  });
  if (!seen.error.empty()) return seen;
  seen.error = forEachSample(movie, MediaType::audio, [&](SampleBuffer& sample) {
    const auto list = sample.audioBufferList();
    const auto* const values = static_cast<const float*>(list->buffers()[0].data);
    seen.sampleRate = static_cast<int>(sample.format()->audioFormat.sampleRate);
    // Sound begins where its track does.
    if (seen.sound.empty()) {
      seen.sound.resize(static_cast<std::size_t>(
          std::llround(std::max(0.0, sample.presentationTimeStamp().seconds()) * seen.sampleRate)));
    }
    seen.largestSoundStep =
        std::max(seen.largestSoundStep, std::abs(sample.presentationTimeStamp().seconds() - seen.soundLength()));
    seen.sound.insert(seen.sound.end(), values, values + sample.numSamples());
  });
  for (const std::size_t onset : SyntheticSound::findBeepOnsets(seen.sound, seen.sampleRate)) {
    seen.beeps.push_back(static_cast<double>(onset) / seen.sampleRate);
  }
  return seen;
}

std::vector<RecordingObservation::Offset> RecordingObservation::offsets() const {
  std::vector<Offset> all;
  for (const double flash : flashes) {
    double nearest = 1;
    for (const double beep : beeps) {
      if (std::abs(beep - flash) < std::abs(nearest)) nearest = beep - flash;
    }
    if (std::abs(nearest) <= 0.5) all.push_back({flash, nearest});
  }
  return all;
}

}  // namespace tavrel::test
