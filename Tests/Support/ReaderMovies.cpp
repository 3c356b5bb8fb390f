#include "Support/ReaderMovies.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string_view>

#include "Platform/Graphics/PixelBuffer.h"

namespace tavrel::test {

ReaderFolder::ReaderFolder() {
  std::string name = testing::TempDir() + "/readerXXXXXX";
  if (!mkdtemp(name.data())) ADD_FAILURE() << "no temporary folder";
  path_ = name;
}

ReaderFolder::~ReaderFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void makeMovie(const std::filesystem::path& output, const std::string& arguments) {
  makeMovieFrom({}, output, arguments);
}

void makeMovieFrom(const std::filesystem::path& input, const std::filesystem::path& output,
                   const std::string& arguments) {
  // In one go: a folder's name may have the letters of a placeholder.
  std::string command = "ffmpeg -nostdin -v error -y ";
  for (std::size_t at = 0; at < arguments.size();) {
    const std::string_view rest = std::string_view(arguments).substr(at);
    if (rest.starts_with("OUT")) {
      command += fmt::format("'{}'", output.string());
      at += 3;
    } else if (rest.starts_with("IN")) {
      command += fmt::format("'{}'", input.string());
      at += 2;
    } else {
      command += arguments[at++];
    }
  }
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

std::vector<std::uint8_t> bytesOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::filesystem::path& file, const std::vector<std::uint8_t>& bytes) {
  std::ofstream stream(file, std::ios::binary);
  for (const std::uint8_t byte : bytes) stream.put(static_cast<char>(byte));
}

OpenedReader::OpenedReader(const std::filesystem::path& file, MediaType mediaType, const AssetOptions& options) {
  auto opened = Asset::create(file, options);
  if (!opened) {
    ADD_FAILURE() << opened.error().description;
    return;
  }
  asset = *opened;
  reader = AssetReader::create(asset).value();
  const auto tracks = asset->tracksWithMediaType(mediaType);
  if (tracks.empty()) {
    ADD_FAILURE() << "no such track in " << file;
    return;
  }
  output = mediaType == MediaType::subtitle ? std::make_shared<AssetReaderTrackOutput>(tracks.front(), std::nullopt)
                                            : std::make_shared<AssetReaderTrackOutput>(tracks.front());
  reader->addOutput(output);
  EXPECT_TRUE(reader->startReading());
}

std::vector<std::shared_ptr<SampleBuffer>> OpenedReader::readAll() {
  std::vector<std::shared_ptr<SampleBuffer>> samples;
  while (output) {
    auto sample = output->copyNextSampleBuffer();
    if (!sample) break;
    samples.push_back(std::move(sample));
  }
  return samples;
}

std::vector<double> OpenedReader::readTimes() {
  std::vector<double> times;
  while (output) {
    const auto sample = output->copyNextSampleBuffer();
    if (!sample) break;
    times.push_back(sample->presentationTimeStamp().seconds());
  }
  return times;
}

std::vector<std::uint8_t> pixelsOf(const SampleBuffer& sample) {
  std::vector<std::uint8_t> pixels;
  const auto buffer = sample.imageBuffer();
  buffer->lockBaseAddress(PixelBufferLock::readOnly);
  for (std::size_t y = 0; y < buffer->height(); ++y) {
    const std::uint8_t* row = buffer->baseAddress() + y * buffer->bytesPerRow();
    pixels.insert(pixels.end(), row, row + buffer->width() * 4);
  }
  buffer->unlockBaseAddress(PixelBufferLock::readOnly);
  return pixels;
}

std::vector<float> firstChannelOf(const SampleBuffer& sample) {
  const AudioBuffer& buffer = sample.audioBufferList()->buffers().front();
  const auto* samples = static_cast<const float*>(buffer.data);
  std::vector<float> channel;
  for (std::int64_t i = 0; i < sample.numSamples(); ++i) {
    channel.push_back(samples[static_cast<std::size_t>(i) * buffer.channelCount]);
  }
  return channel;
}

}  // namespace tavrel::test
