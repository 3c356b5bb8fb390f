// Writes a movie as a recording would be, picture after picture, none lost:  LiveMovie INPUT OUTPUT QUALITY
#include <cstdio>
#include <cstdlib>

#include "TavrelCaptureBase.h"

using namespace tavrel;

namespace {

int complain(const std::string& reason) {
  std::fprintf(stderr, "LiveMovie: %s\n", reason.c_str());
  return 1;
}

int write(const char* input, const char* output, double quality) {
  const auto asset = Asset::create(input);
  if (!asset) return complain(asset.error().description);
  const auto tracks = (*asset)->tracksWithMediaType(MediaType::video);
  if (tracks.empty()) return complain("no pictures");
  const auto reader = AssetReader::create(*asset).value();
  const auto source = std::make_shared<AssetReaderTrackOutput>(tracks.front());
  reader->addOutput(source);
  const Size size = tracks.front()->naturalSize();
  const auto writer = AssetWriter::create(output, kFileTypeMatroska);
  if (!writer) return complain(writer.error().description);
  const auto destination = AssetWriterInput::create(
      MediaType::video, Dictionary{{kVideoCodecKey, std::string(kVideoCodecH264)},
                                   {kVideoWidthKey, static_cast<std::int64_t>(size.width)},
                                   {kVideoHeightKey, static_cast<std::int64_t>(size.height)},
                                   {kVideoEncoderKey, std::string("libx264")},
                                   {kVideoExpectedFrameRateKey, tracks.front()->nominalFrameRate()},
                                   {kVideoQualityKey, quality}});
  destination->setExpectsMediaDataInRealTime(true);
  if (!(*writer)->addInput(destination) || !(*writer)->startWriting()) return complain((*writer)->error()->description);
  if (!reader->startReading()) return complain(reader->error()->description);
  (*writer)->startSessionAtSourceTime(MediaTime::zero());
  while (const auto sample = source->copyNextSampleBuffer()) {
    if (!destination->waitUntilReady(std::chrono::seconds(60)) || !destination->append(sample)) {
      return complain("a picture is not taken");
    }
  }
  return (*writer)->finishWriting() ? 0 : complain((*writer)->error()->description);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return complain("usage: LiveMovie INPUT OUTPUT QUALITY");
  return write(arguments[1], arguments[2], std::atof(arguments[3]));
}
