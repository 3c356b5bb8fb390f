#include "Platform/Media/MovieMaker.h"

#include <unistd.h>

#include <atomic>
#include <numbers>

namespace tavrel::test {

TemporaryFolder::TemporaryFolder() {
  static std::atomic<int> number = 0;
  path_ = std::filesystem::temp_directory_path() /
          ("tavrel-media-" + std::to_string(::getpid()) + "-" + std::to_string(++number));
  std::filesystem::create_directories(path_);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Dictionary h264Settings(std::int64_t width, std::int64_t height) {
  return {{kVideoCodecKey, std::string(kVideoCodecH264)}, {kVideoWidthKey, width}, {kVideoHeightKey, height}};
}

Dictionary aacSettings(double sampleRate, std::int64_t channels) {
  return {{kAudioFormatIDKey, std::int64_t{kAudioFormatMPEG4AAC}},
          {kAudioNumberOfChannelsKey, channels},
          {kAudioSampleRateKey, sampleRate},
          {kAudioEncoderBitRateKey, std::int64_t{64000} * channels}};
}

std::shared_ptr<PixelBuffer> solidPicture(std::size_t width, std::size_t height, std::uint8_t blue, std::uint8_t green,
                                          std::uint8_t red) {
  auto picture = *PixelBuffer::create(width, height, PixelFormat::bgra32);
  picture->lockBaseAddress(PixelBufferLock::readWrite);
  for (std::size_t y = 0; y < height; ++y) {
    std::uint8_t* pixel = picture->baseAddress() + y * picture->bytesPerRow();
    for (std::size_t x = 0; x < width; ++x, pixel += 4) {
      pixel[0] = blue, pixel[1] = green, pixel[2] = red, pixel[3] = 255;
    }
  }
  picture->unlockBaseAddress(PixelBufferLock::readWrite);
  return picture;
}

std::shared_ptr<SampleBuffer> sound(const AudioFormat& format, std::int64_t count, MediaTime time,
                                    const std::function<double(double)>& signal) {
  auto list = AudioBufferList::create(format, static_cast<std::size_t>(count));
  for (std::int64_t frame = 0; frame < count; ++frame) {
    const double value = signal(time.seconds() + static_cast<double>(frame) / format.sampleRate);
    for (std::uint32_t channel = 0; channel < format.channelCount; ++channel) {
      const std::size_t buffer = format.isInterleaved ? 0 : channel;
      const std::int64_t index = format.isInterleaved ? frame * format.channelCount + channel : frame;
      void* const data = list->buffers()[buffer].data;
      if (format.sampleType == AudioSampleType::int16) {
        static_cast<std::int16_t*>(data)[index] = static_cast<std::int16_t>(std::lround(value * 32767));
      } else {
        static_cast<float*>(data)[index] = static_cast<float>(value);
      }
    }
  }
  return *SampleBuffer::createAudio(format, std::move(list), count, time);
}

MovieMaker MovieMaker::create(const std::filesystem::path& path, const Options& options) {
  MovieMaker maker;
  maker.writer = *AssetWriter::create(path, options.fileType);
  Dictionary videoSettings = h264Settings(options.width, options.height);
  videoSettings[kVideoCodecKey] = AssetWriter::usualVideoCodec(options.fileType);
  maker.video = AssetWriterInput::create(MediaType::video, videoSettings);
  maker.video->setExpectsMediaDataInRealTime(options.isRealTime);
  maker.adaptor = AssetWriterInputPixelBufferAdaptor::create(maker.video, {});
  if (options.audioSettings) {
    Dictionary audioSettings = *options.audioSettings;
    audioSettings[kAudioFormatIDKey] = static_cast<std::int64_t>(AssetWriter::usualAudioFormat(options.fileType));
    maker.audio = AssetWriterInput::create(MediaType::audio, audioSettings);
    maker.audio->setExpectsMediaDataInRealTime(options.isRealTime);
  }
  if (options.prepare) options.prepare(maker);
  maker.writer->addInput(maker.video);
  if (maker.audio) maker.writer->addInput(maker.audio);
  return maker;
}

MovieMaker MovieMaker::start(const std::filesystem::path& path, const Options& options, MediaTime start) {
  MovieMaker maker = create(path, options);
  maker.writer->startWriting();
  maker.writer->startSessionAtSourceTime(start);
  return maker;
}

bool MovieMaker::addPicture(const std::shared_ptr<PixelBuffer>& picture, MediaTime time) const {
  return video->waitUntilReady(std::chrono::seconds(20)) && adaptor->append(picture, time);
}

bool MovieMaker::addSound(const std::shared_ptr<SampleBuffer>& buffer) const {
  return audio->waitUntilReady(std::chrono::seconds(20)) && audio->append(buffer);
}

bool MovieMaker::addTone(double seconds, MediaTime time, double frequency, const AudioFormat& format) const {
  const auto total = std::llround(seconds * format.sampleRate);
  const auto piece = std::llround(format.sampleRate / 100);
  for (std::int64_t done = 0; done < total; done += piece) {
    const MediaTime start = time + MediaTime::make(done, static_cast<std::int32_t>(format.sampleRate));
    const auto buffer = sound(format, std::min<std::int64_t>(piece, total - done), start,
                              [&](double t) { return 0.5 * std::sin(2 * std::numbers::pi * frequency * t); });
    if (!addSound(buffer)) return false;
  }
  return true;
}

}  // namespace tavrel::test
