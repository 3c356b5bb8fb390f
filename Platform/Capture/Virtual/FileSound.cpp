#include "Platform/Capture/Virtual/FileSound.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AssetReaderTrackOutput.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

struct FileSound::Implementation {
  std::filesystem::path path;
  int sampleRate = 0;
  int channelCount = 1;
  std::shared_ptr<const Asset> asset;
  std::shared_ptr<const AssetTrack> track;

  std::shared_ptr<AssetReader> reader;
  std::shared_ptr<AssetReaderOutput> output;
  std::vector<float> waiting;  // decoded, from sample number `position` on
  std::size_t used = 0;        // of `waiting`
  std::uint64_t position = 0;
  bool passHadSamples = false;

  Expected<void> open();
  Expected<void> rewind();
  Expected<void> decodeMore();
  Expected<std::size_t> take(float* destination, std::size_t count);
};

Expected<void> FileSound::Implementation::open() {
  auto opened = Asset::create(path);
  if (!opened) return tl::unexpected(opened.error());
  asset = std::move(*opened);
  const auto tracks = asset->tracksWithMediaType(MediaType::audio);
  if (tracks.empty()) return failure(CaptureErrorCode::badSound, fmt::format("{} has no sound", path.string()));
  track = tracks.front();
  channelCount = std::clamp(track->channelCount(), 1, 2);
  if (auto rewound = rewind(); !rewound) return rewound;
  return decodeMore();
}

Expected<void> FileSound::Implementation::rewind() {
  auto created = AssetReader::create(asset);
  if (!created) return tl::unexpected(created.error());
  reader = std::move(*created);
  const Dictionary settings = {{kAudioSampleRateKey, std::int64_t{sampleRate}},
                               {kAudioNumberOfChannelsKey, std::int64_t{channelCount}}};
  output = std::make_shared<AssetReaderTrackOutput>(track, settings);
  reader->addOutput(output);
  if (!reader->startReading()) return tl::unexpected(*reader->error());
  passHadSamples = false;
  return {};
}

/// Fills `waiting`, from the start of the file again when its end is reached.
Expected<void> FileSound::Implementation::decodeMore() {
  waiting.clear();
  used = 0;
  while (waiting.empty()) {
    const auto buffer = output->copyNextSampleBuffer();
    if (buffer) {
      const auto* const samples = static_cast<const float*>(buffer->audioBufferList()->buffers().front().data);
      waiting.assign(samples, samples + buffer->numSamples() * channelCount);
      passHadSamples = passHadSamples || !waiting.empty();
      continue;
    }
    if (!passHadSamples) {
      const auto reason = reader->error();
      return failure(CaptureErrorCode::badSound,
                     reason ? reason->description : fmt::format("{} holds no samples", path.string()));
    }
    if (auto rewound = rewind(); !rewound) return rewound;
  }
  return {};
}

/// Copies up to `count` samples on from `position`, or skips them without a destination.
Expected<std::size_t> FileSound::Implementation::take(float* destination, std::size_t count) {
  if (used == waiting.size()) {
    if (auto decoded = decodeMore(); !decoded) return tl::unexpected(decoded.error());
  }
  const std::size_t taken = std::min(count, waiting.size() - used);
  if (destination) std::memcpy(destination, waiting.data() + used, taken * sizeof(float));
  used += taken;
  position += taken;
  return taken;
}

Expected<std::shared_ptr<FileSound>> FileSound::create(const std::filesystem::path& path, int sampleRate) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    return failure(CaptureErrorCode::noSuchFile, fmt::format("there is no file {} to be a sound", path.string()));
  }
  auto implementation = std::make_unique<Implementation>();
  implementation->path = path;
  implementation->sampleRate = sampleRate;
  if (auto opened = implementation->open(); !opened) {
    return failure(CaptureErrorCode::badSound, opened.error().description);
  }
  return std::shared_ptr<FileSound>(new FileSound(std::move(implementation)));
}

FileSound::FileSound(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}

FileSound::~FileSound() = default;

int FileSound::channelCount() const { return implementation_->channelCount; }

Expected<void> FileSound::render(std::span<float> samples, std::uint64_t firstMoment) {
  Implementation& sound = *implementation_;
  const std::uint64_t first = firstMoment * static_cast<std::uint64_t>(sound.channelCount);
  if (first < sound.position) {
    sound.waiting.clear();
    sound.used = 0;
    sound.position = 0;
    if (auto rewound = sound.rewind(); !rewound) return rewound;
  }
  while (sound.position < first) {
    const auto skipped = sound.take(nullptr, first - sound.position);
    if (!skipped) return tl::unexpected(skipped.error());
  }
  for (std::size_t filled = 0; filled < samples.size();) {
    const auto taken = sound.take(samples.data() + filled, samples.size() - filled);
    if (!taken) return tl::unexpected(taken.error());
    filled += *taken;
  }
  return {};
}

}  // namespace tavrel
