#include "Platform/Media/Asset.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>
#include <string_view>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/Reading/AdtsUnwrapper.h"
#include "Platform/Media/Private/Reading/MovieInput.h"
#include "Platform/Media/Private/Reading/MovieMeasurement.h"
#include "Platform/Media/Private/Reading/StoredTrackReader.h"

extern "C" {
#include <libavutil/display.h>
}

namespace tavrel {
namespace {

AffineTransform transformOf(const AVStream& stream) {
  std::size_t size = 0;
  const std::uint8_t* data = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (!data || size < sizeof(std::int32_t) * 9) return {};
  const auto* matrix = static_cast<const std::int32_t*>(static_cast<const void*>(data));
  const auto element = [matrix](int i) { return matrix[i] / 65536.0; };
  return {element(0), element(1), element(3), element(4), element(6), element(7)};
}

std::shared_ptr<const AssetTrack> trackOf(const std::filesystem::path& path, AVFormatContext& file, AVStream& stream,
                                          const MovieMeasurement& measured) {
  const AVCodecParameters& parameters = *stream.codecpar;
  AssetTrack::Properties track;
  track.path = path;
  track.trackID = stream.index;
  track.storedFormat = storedFormatOf(stream, measured.headers.vary(stream.index));
  track.access = measured.access;
  track.codecName = avcodec_get_name(parameters.codec_id);
  track.timeRange = timeRangeOf(file, stream);
  track.isDefault = (stream.disposition & AV_DISPOSITION_DEFAULT) != 0;
  const AVDictionaryEntry* const language = av_dict_get(stream.metadata, "language", nullptr, 0);
  if (language && language->value != std::string_view("und")) track.languageCode = language->value;
  if (parameters.codec_type == AVMEDIA_TYPE_SUBTITLE) {
    track.mediaType = MediaType::subtitle;
    track.naturalTimescale = stream.time_base.den;
    return std::make_shared<AssetTrack>(std::move(track));
  }
  if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
    track.mediaType = MediaType::audio;
    track.sampleRate = parameters.sample_rate;
    track.channelCount = parameters.ch_layout.nb_channels;
    track.naturalTimescale = parameters.sample_rate;
    return std::make_shared<AssetTrack>(std::move(track));
  }
  track.mediaType = MediaType::video;
  track.naturalTimescale = stream.time_base.den;
  track.naturalSize = {static_cast<double>(parameters.width), static_cast<double>(parameters.height)};
  track.preferredTransform = transformOf(stream);
  track.containsHDRVideo =
      parameters.color_trc == AVCOL_TRC_SMPTE2084 || parameters.color_trc == AVCOL_TRC_ARIB_STD_B67;
  if (const AVRational shape = av_guess_sample_aspect_ratio(&file, &stream, nullptr); shape.num > 0 && shape.den > 0)
    track.pixelAspectRatio = {static_cast<double>(shape.num), static_cast<double>(shape.den)};
  const AVRational rate = stream.avg_frame_rate.num > 0 && stream.avg_frame_rate.den > 0
                              ? stream.avg_frame_rate
                              : av_guess_frame_rate(&file, &stream, nullptr);
  track.nominalFrameRate = rate.den > 0 ? av_q2d(rate) : 0;
  return std::make_shared<AssetTrack>(std::move(track));
}

std::string codingOf(const AVCodecParameters& parameters) {
  std::array<char, AV_FOURCC_MAX_STRING_SIZE> tag{};
  const bool isNamed = parameters.codec_id != AV_CODEC_ID_NONE || parameters.codec_tag == 0;
  return isNamed ? avcodec_get_name(parameters.codec_id) : av_fourcc_make_string(tag.data(), parameters.codec_tag);
}

std::vector<std::string> contentBesideTracksOf(const AVFormatContext& file, const MovieMeasurement& measured) {
  std::vector<std::string> contents;
  for (unsigned i = 0; i < file.nb_streams; ++i) {
    const AVStream& stream = *file.streams[i];
    const AVCodecParameters& parameters = *stream.codecpar;
    // Chapters of QuickTime have a track of texts, too, and its times one of their own.
    const bool isOfChapters = file.nb_chapters > 0 && parameters.codec_type == AVMEDIA_TYPE_DATA;
    if (isArtwork(stream)) continue;
    if (parameters.codec_type == AVMEDIA_TYPE_ATTACHMENT) {
      contents.emplace_back("an attachment");
    } else if (parameters.codec_tag == MKTAG('t', 'm', 'c', 'd')) {
      contents.emplace_back("a timecode");
    } else if (parameters.codec_type == AVMEDIA_TYPE_DATA && !isOfChapters) {
      contents.push_back(fmt::format("data ({})", codingOf(parameters)));
    } else if (measured.farTracks.contains(stream.index)) {
      contents.push_back(fmt::format("a track that begins too far in the file ({})", codingOf(parameters)));
    } else if (!isReadable(stream) && !isOfChapters) {
      contents.push_back(fmt::format("a track that cannot be decoded ({})", codingOf(parameters)));
    }
  }
  return contents;
}

std::vector<Chapter> chaptersOf(const AVFormatContext& file) {
  const std::int64_t offset = timelineOffset(file);
  std::vector<Chapter> chapters;
  for (unsigned i = 0; i < file.nb_chapters; ++i) {
    const AVChapter& chapter = *file.chapters[i];
    const auto time = [&](std::int64_t units) {
      return MediaTime::make(av_rescale_q(units, chapter.time_base, AV_TIME_BASE_Q) - offset, AV_TIME_BASE);
    };
    const AVDictionaryEntry* const title = av_dict_get(chapter.metadata, "title", nullptr, 0);
    if (isSane(chapter.start) && isSane(chapter.end) && chapter.end >= chapter.start)
      chapters.push_back({{time(chapter.start), time(chapter.end) - time(chapter.start)}, title ? title->value : ""});
  }
  return chapters;
}

std::optional<Artwork> artworkOf(const AVFormatContext& file) {
  for (unsigned i = 0; i < file.nb_streams; ++i) {
    const AVStream& stream = *file.streams[i];
    const AVPacket& picture = stream.attached_pic;
    if (isArtwork(stream) && picture.size > 0)
      return Artwork{avcodec_get_name(stream.codecpar->codec_id), Data(picture.data, picture.data + picture.size)};
  }
  return std::nullopt;
}

/// By the names that are the same for all containers.
std::vector<MetadataItem> metadataOf(const AVFormatContext& file) {
  constexpr std::array<std::pair<std::string_view, const char*>, 8> kNames{
      {{"com.apple.quicktime.title", kMetadataTitle},
       {"com.apple.quicktime.creationdate", kMetadataCreationDate},
       {"com.apple.quicktime.location.ISO6709", kMetadataLocation},
       {"com.apple.quicktime.artist", kMetadataArtist},
       {"com.apple.quicktime.comment", kMetadataComment},
       {"com.apple.quicktime.make", kMetadataMake},
       {"com.apple.quicktime.model", kMetadataModel},
       {"location-eng", kMetadataLocation}}};
  // What the file is, not what it shows.
  constexpr std::array<std::string_view, 5> kOfTheFile{"major_brand", "minor_version", "compatible_brands", "encoder",
                                                       "software"};
  std::vector<MetadataItem> items;
  const auto has = [&items](std::string_view key) {
    return std::any_of(items.begin(), items.end(), [key](const MetadataItem& item) { return item.key == key; });
  };
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(file.metadata, "", entry, AV_DICT_IGNORE_SUFFIX))) {
    std::string key = entry->key;
    std::transform(key.begin(), key.end(), key.begin(), [](unsigned char letter) { return std::tolower(letter); });
    const auto* const named =
        std::find_if(kNames.begin(), kNames.end(), [entry](const auto& each) { return each.first == entry->key; });
    if (named != kNames.end()) key = named->second;
    const bool isOfTheFile = std::find(kOfTheFile.begin(), kOfTheFile.end(), key) != kOfTheFile.end();
    if (!isOfTheFile && !has(key)) items.push_back({key, entry->value});
  }
  return items;
}

}  // namespace

Expected<std::shared_ptr<Asset>> Asset::create(const std::filesystem::path& path, AssetOptions options) {
  auto asset = createUnloaded(path, options);
  asset->load();
  if (const auto error = asset->error()) return tl::unexpected(*error);
  return asset;
}

std::shared_ptr<Asset> Asset::createUnloaded(const std::filesystem::path& path, AssetOptions options) {
  return std::shared_ptr<Asset>(new Asset(path, options, ValueStatus::unknown));
}

void Asset::loadTracksAsynchronously(std::function<void()> completion) {
  {
    const std::lock_guard lock(mutex_);
    if (status_ == ValueStatus::unknown) status_ = ValueStatus::loading;
  }
  DispatchQueue::global()->async([self = shared_from_this(), completion = std::move(completion)] {
    self->load();
    completion();
  });
}

Asset::ValueStatus Asset::statusOfTracks() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

std::optional<Error> Asset::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

std::vector<std::shared_ptr<const AssetTrack>> Asset::tracks() const {
  load();
  const std::lock_guard lock(mutex_);
  return tracks_;
}

std::vector<MetadataItem> Asset::metadata() const {
  load();
  const std::lock_guard lock(mutex_);
  return metadata_;
}

std::vector<Chapter> Asset::chapters() const {
  load();
  const std::lock_guard lock(mutex_);
  return chapters_;
}

std::optional<Artwork> Asset::artwork() const {
  load();
  const std::lock_guard lock(mutex_);
  return artwork_;
}

std::vector<std::string> Asset::contentBesideTracks() const {
  load();
  const std::lock_guard lock(mutex_);
  return contentBesideTracks_;
}

MediaTime Asset::duration() const {
  load();
  const std::lock_guard lock(mutex_);
  return duration_;
}

void Asset::load() const {
  const std::lock_guard lock(mutex_);
  if (status_ == ValueStatus::loaded || status_ == ValueStatus::failed) return;
  const auto read = readFile();
  status_ = read ? ValueStatus::loaded : ValueStatus::failed;
  if (!read) error_ = read.error();
}

Expected<void> Asset::readFile() const {
  auto file = openMovieInput(path_);
  if (!file) return tl::unexpected(file.error());
  AdtsUnwrapper::completeHeaders(**file);
  const auto measured = options_.prefersPreciseDurationAndTiming ? MovieMeasurement::of(**file) : MovieMeasurement();
  if (measured.access.searchedBytes > 0) {
    file = openMovieInput(path_, measured.access.searchedBytes);
    if (!file) return tl::unexpected(file.error());
    AdtsUnwrapper::completeHeaders(**file);
  }
  for (unsigned i = 0; i < (*file)->nb_streams; ++i) {
    AVStream& stream = *(*file)->streams[i];
    if (measured.farTracks.contains(stream.index)) continue;
    if (isSubtitle(stream)) subtitles_.push_back(trackOf(path_, **file, stream, measured));
    if (!isPlayable(stream)) continue;
    if (i < measured.lengths.size() && measured.lengths[i] != AV_NOPTS_VALUE) stream.duration = measured.lengths[i];
    measured.headers.widen(stream.index, *stream.codecpar);
    tracks_.push_back(trackOf(path_, **file, stream, measured));
    duration_ = std::max(duration_, tracks_.back()->timeRange().end());
  }
  metadata_ = metadataOf(**file);
  chapters_ = chaptersOf(**file);
  artwork_ = artworkOf(**file);
  contentBesideTracks_ = contentBesideTracksOf(**file, measured);
  if (!tracks_.empty()) return {};
  return tl::unexpected(unreadableMovie(path_, "it holds neither pictures nor sound that can be decoded",
                                        MediaErrorCode::noPlayableTrack));
}

std::vector<std::shared_ptr<const AssetTrack>> Asset::tracksWithMediaType(MediaType mediaType) const {
  const auto all = tracks();
  if (mediaType == MediaType::subtitle) {
    const std::lock_guard lock(mutex_);
    return subtitles_;
  }
  std::vector<std::shared_ptr<const AssetTrack>> found;
  std::copy_if(all.begin(), all.end(), std::back_inserter(found),
               [mediaType](const auto& track) { return track->mediaType() == mediaType; });
  return found;
}

}  // namespace tavrel
