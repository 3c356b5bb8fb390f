#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AssetReaderTrackOutput.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel::test {

/// A folder that is removed with everything in it.
class ReaderFolder {
 public:
  ReaderFolder();
  ReaderFolder(const ReaderFolder&) = delete;
  ReaderFolder& operator=(const ReaderFolder&) = delete;
  ~ReaderFolder();

  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

/// Runs the ffmpeg program with these arguments, in which OUT stands for `output`; fails the test when it fails.
void makeMovie(const std::filesystem::path& output, const std::string& arguments);
/// The same with IN for an existing file.
void makeMovieFrom(const std::filesystem::path& input, const std::filesystem::path& output,
                   const std::string& arguments);

std::vector<std::uint8_t> bytesOf(const std::filesystem::path& file);
void writeBytes(const std::filesystem::path& file, const std::vector<std::uint8_t>& bytes);

/// An asset, a reader and the output of its first track of one type, reading.
struct OpenedReader {
  std::shared_ptr<Asset> asset;
  std::shared_ptr<AssetReader> reader;
  std::shared_ptr<AssetReaderTrackOutput> output;

  OpenedReader(const std::filesystem::path& file, MediaType mediaType, const AssetOptions& options = {});
  std::vector<std::shared_ptr<SampleBuffer>> readAll();
  std::vector<double> readTimes();
};

/// The rows of a picture sample, one after the other, four bytes a pixel.
std::vector<std::uint8_t> pixelsOf(const SampleBuffer& sample);
/// The first channel of a sound sample.
std::vector<float> firstChannelOf(const SampleBuffer& sample);

}  // namespace tavrel::test
