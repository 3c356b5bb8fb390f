#include "Platform/Media/AssetWriter.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "Platform/Media/Private/Writing/AssetWriterSession.h"
#include "Platform/Media/Private/Writing/PassthroughTrackEncoder.h"

namespace tavrel {

Expected<std::shared_ptr<AssetWriter>> AssetWriter::create(const std::filesystem::path& url,
                                                           std::string_view fileType) {
  auto file = MovieFile::open(url, fileType);
  if (!file) return tl::unexpected(file.error());
  return std::shared_ptr<AssetWriter>(new AssetWriter(std::make_shared<AssetWriterSession>(std::move(*file))));
}

std::optional<std::string> AssetWriter::fileTypeOf(const std::filesystem::path& url) {
  std::string ending = url.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
  if (ending == ".mov") return kFileTypeQuickTimeMovie;
  if (ending == ".mp4") return kFileTypeMPEG4;
  if (ending == ".mkv") return kFileTypeMatroska;
  return std::nullopt;
}

bool AssetWriter::canStore(const FormatDescription& format, std::string_view fileType) {
  const AVCodecID codec = PassthroughTrackEncoder::codecOf(format);
  const auto container = MovieContainer::find(fileType);
  if (codec == AV_CODEC_ID_NONE || !container || !container->canHold(codec)) return false;
  // The muxer says no only when it is too late.
  const bool isRefused = codec == AV_CODEC_ID_FLAC || codec == AV_CODEC_ID_TRUEHD ||
                         (codec == AV_CODEC_ID_OPUS && fileType == kFileTypeQuickTimeMovie);
  // Its header says what only a packet of these shows, or takes them for another layer of MPEG audio; and neither the
  // header nor the packets of Windows Media say all that a decoder has to know.
  constexpr std::array kFragile = {AV_CODEC_ID_AC3, AV_CODEC_ID_EAC3, AV_CODEC_ID_MP2};
  constexpr std::array kIncomplete = {AV_CODEC_ID_WMAV1, AV_CODEC_ID_WMAV2, AV_CODEC_ID_WMAPRO};
  const auto isOneOf = [codec](const auto& list) { return std::find(list.begin(), list.end(), codec) != list.end(); };
  if (isOneOf(kIncomplete) || (isOneOf(kFragile) && fileType != kFileTypeMatroska)) return false;
  if (isRefused && fileType != kFileTypeMatroska) return false;
  // These carry in every packet what the header of such a file has to say, or not at all.
  constexpr std::array kNeedHeader = {AV_CODEC_ID_AAC, AV_CODEC_ID_VORBIS, AV_CODEC_ID_OPUS, AV_CODEC_ID_FLAC,
                                      AV_CODEC_ID_ALAC};
  const bool needsHeader = std::find(kNeedHeader.begin(), kNeedHeader.end(), codec) != kNeedHeader.end();
  return !needsHeader || !format.codecExtradata.empty();
}

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
  session_->setSettings([&](MovieFile::Settings& settings) { settings.metadata = std::move(metadata); });
}

std::vector<MetadataItem> AssetWriter::metadata() const { return session_->settings().metadata; }

void AssetWriter::setAppearsWhenComplete(bool appears) {
  session_->setSettings([&](MovieFile::Settings& settings) { settings.appearsWhenComplete = appears; });
}

bool AssetWriter::addInput(const std::shared_ptr<AssetWriterInput>& input) {
  return input && session_->add(input->pipeline_);
}

bool AssetWriter::startWriting() { return session_->start(); }

void AssetWriter::startSessionAtSourceTime(MediaTime time) { session_->startSession(time); }

bool AssetWriter::finishWriting() { return session_->finishAndWait(); }

void AssetWriter::finishWriting(std::function<void()> completion) { session_->finish(std::move(completion)); }

void AssetWriter::cancelWriting() { session_->cancel(); }

MediaTime AssetWriter::writtenUntil() const { return session_->writtenUntil(); }

std::uint64_t AssetWriter::writtenSamples(MediaType mediaType) const { return session_->writtenSamples(mediaType); }

}  // namespace tavrel
