#include "Platform/Media/AssetWriter.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "Platform/Media/FFmpegFunctions.h"
#include "Platform/Media/Private/StoredCoding.h"
#include "Platform/Media/Private/Writing/AssetWriterSession.h"
#include "Platform/Media/Private/Writing/PassthroughTrackEncoder.h"
#include "Platform/Media/Private/Writing/SubtitleTrackEncoder.h"
#include "Platform/Media/Private/Writing/VideoEncoder.h"

namespace tavrel {

Expected<std::shared_ptr<AssetWriter>> AssetWriter::create(const std::filesystem::path& url,
                                                           std::string_view fileType) {
  auto file = MovieFile::open(url, fileType);
  if (!file) return tl::unexpected(file.error());
  return std::shared_ptr<AssetWriter>(new AssetWriter(std::make_shared<AssetWriterSession>(std::move(*file))));
}

void AssetWriter::prepare() { FFmpegFunctions::shared(); }

std::optional<std::string> AssetWriter::fileTypeOf(const std::filesystem::path& url) {
  std::string ending = url.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
  if (ending == ".mov") return kFileTypeQuickTimeMovie;
  if (ending == ".mp4") return kFileTypeMPEG4;
  if (ending == ".mkv") return kFileTypeMatroska;
  if (ending == ".webm") return kFileTypeWebM;
  return std::nullopt;
}

bool AssetWriter::canStore(const FormatDescription& format, std::string_view fileType) {
  const auto container = MovieContainer::find(fileType);
  if (format.mediaType == MediaType::subtitle) return container && SubtitleTrackEncoder::canStore(*container, format);
  if (format.storedCoding && format.storedCoding->varies) return false;
  return container && container->canStore(PassthroughTrackEncoder::codecOf(format), !format.codecExtradata.empty());
}

bool AssetWriter::canStore(const Artwork& artwork, const std::vector<MetadataItem>& metadata,
                           std::string_view fileType) {
  const auto container = MovieContainer::find(fileType);
  return container && container->canHoldArtwork(artwork, metadata);
}

std::string AssetWriter::usualVideoCodec(std::string_view fileType) {
  return fileType == kFileTypeWebM ? kVideoCodecVP9 : kVideoCodecH264;
}

std::uint32_t AssetWriter::usualAudioFormat(std::string_view fileType) {
  return fileType == kFileTypeWebM ? kAudioFormatOpus : kAudioFormatMPEG4AAC;
}

std::vector<VideoEncoderInfo> AssetWriter::videoEncoders() { return VideoEncoder::list(); }

AssetWriter::AssetWriter(std::shared_ptr<AssetWriterSession> session) : session_(std::move(session)) {}

AssetWriter::~AssetWriter() { session_->close(); }

AssetWriterStatus AssetWriter::status() const { return session_->status(); }

std::optional<Error> AssetWriter::error() const { return session_->error(); }

void AssetWriter::setMovieFragmentInterval(MediaTime interval) {
  session_->setSettings([&](MovieFile::Settings& settings) { settings.fragmentInterval = interval; });
}

MediaTime AssetWriter::movieFragmentInterval() const { return session_->settings().fragmentInterval; }

void AssetWriter::setStaysFragmented(bool stays) {
  session_->setSettings([&](MovieFile::Settings& settings) { settings.staysFragmented = stays; });
}

bool AssetWriter::staysFragmented() const { return session_->settings().staysFragmented; }

void AssetWriter::setIndexRoom(MediaTime duration) {
  session_->setSettings([&](MovieFile::Settings& settings) { settings.indexRoom = duration; });
}

MediaTime AssetWriter::indexRoom() const { return session_->settings().indexRoom; }

void AssetWriter::setMetadata(std::vector<MetadataItem> metadata) {
  session_->setSettings([&](MovieFile::Settings& settings) { settings.contents.metadata = std::move(metadata); });
}

std::vector<MetadataItem> AssetWriter::metadata() const { return session_->settings().contents.metadata; }

void AssetWriter::setChapters(std::vector<Chapter> chapters) {
  session_->setSettings([&](MovieFile::Settings& settings) { settings.contents.chapters = std::move(chapters); });
}

void AssetWriter::setArtwork(std::optional<Artwork> artwork) {
  session_->setSettings([&](MovieFile::Settings& settings) { settings.contents.artwork = std::move(artwork); });
}

void AssetWriter::setAppearsWhenComplete(bool appears) {
  session_->setSettings([&](MovieFile::Settings& settings) { settings.appearsWhenComplete = appears; });
}

bool AssetWriter::addInput(const std::shared_ptr<AssetWriterInput>& input) {
  return input && session_->add(input->pipeline_);
}

bool AssetWriter::startWriting() { return session_->start(); }

void AssetWriter::startSessionAtSourceTime(MediaTime time) { session_->startSession(time); }

bool AssetWriter::finishWriting() { return session_->finishAndWait(); }

void AssetWriter::finishWriting(std::function<void()> completion) {
  const auto session = session_;  // the completion may end this writer while the call is still under way
  session->finish(std::move(completion));
}

void AssetWriter::cancelWriting() { session_->cancel(); }

MediaTime AssetWriter::writtenUntil() const { return session_->writtenUntil(); }

std::uint64_t AssetWriter::writtenSamples(MediaType mediaType) const { return session_->writtenSamples(mediaType); }

}  // namespace tavrel
