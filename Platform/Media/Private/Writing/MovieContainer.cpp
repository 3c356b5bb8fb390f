#include "Platform/Media/Private/Writing/MovieContainer.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/Writing/MatroskaRotation.h"

namespace tavrel {
namespace {

struct FileType {
  const char* name;
  const char* muxer;
};
constexpr std::array<FileType, 4> kFileTypes{{{kFileTypeQuickTimeMovie, "mov"},
                                              {kFileTypeMPEG4, "mp4"},
                                              {kFileTypeMatroska, "matroska"},
                                              {kFileTypeWebM, "webm"}}};

constexpr std::array<std::string_view, 5> kKnown{kMetadataTitle, kMetadataCreationDate, kMetadataLocation,
                                                 kMetadataArtist, kMetadataComment};
constexpr std::array<std::string_view, 20> kKnownInMPEG4{
    "album",  "album_artist", "compilation",  "composer",      "copyright", "date",     "description",
    "disc",   "episode_id",   "episode_sort", "genre",         "grouping",  "hd_video", "keywords",
    "lyrics", "media_type",   "network",      "season_number", "show",      "track"};

/// QuickTime numbers its languages, and FFmpeg knows some of them by the other of two codes of ISO 639-2.
std::string languageOf(const std::string& code, bool isQuickTime) {
  constexpr std::array<std::pair<std::string_view, const char*>, 18> kOther{{{"deu", "ger"},
                                                                             {"nld", "dut"},
                                                                             {"swe", "sve"},
                                                                             {"ell", "gre"},
                                                                             {"isl", "ice"},
                                                                             {"zho", "chi"},
                                                                             {"sqi", "alb"},
                                                                             {"mkd", "mac"},
                                                                             {"hye", "arm"},
                                                                             {"kat", "geo"},
                                                                             {"mya", "bur"},
                                                                             {"msa", "may"},
                                                                             {"bod", "tib"},
                                                                             {"cym", "wel"},
                                                                             {"eus", "baq"},
                                                                             {"fre", "fra"},
                                                                             {"rum", "ron"},
                                                                             {"cze", "ces"}}};
  const auto* const other =
      std::find_if(kOther.begin(), kOther.end(), [&](const auto& each) { return each.first == code; });
  return isQuickTime && other != kOther.end() ? other->second : code;
}

void addDisplayMatrix(AVStream* stream, const AffineTransform& transform) {
  if (transform == AffineTransform{}) return;
  auto* const matrix = reinterpret_cast<std::int32_t*>(
      av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(std::int32_t)));
  if (!matrix) return;
  const auto fixed = [](double number) { return static_cast<std::int32_t>(std::lround(number * 65536)); };
  const std::array<std::int32_t, 9> values{fixed(transform.a),  fixed(transform.b),  0,
                                           fixed(transform.c),  fixed(transform.d),  0,
                                           fixed(transform.tx), fixed(transform.ty), 1 << 30};
  std::copy(values.begin(), values.end(), matrix);
}

}  // namespace

Expected<MovieContainer> MovieContainer::find(std::string_view fileType) {
  const auto* const type = std::find_if(kFileTypes.begin(), kFileTypes.end(),
                                        [&](const FileType& candidate) { return fileType == candidate.name; });
  if (type == kFileTypes.end()) {
    return failure(MediaErrorCode::unsupportedFileType,
                   fmt::format("\"{}\" is not a movie file type that can be written: use {}, {}, {} or {}", fileType,
                               kFileTypes[0].name, kFileTypes[1].name, kFileTypes[2].name, kFileTypes[3].name));
  }
  const AVOutputFormat* const format = av_guess_format(type->muxer, nullptr, nullptr);
  if (format) return MovieContainer(format);
  return failure(MediaErrorCode::unsupportedFileType, fmt::format("this FFmpeg cannot write {} files", type->muxer));
}

bool MovieContainer::canStore(AVCodecID codec, bool hasHeader) const {
  if (codec == AV_CODEC_ID_NONE || !canHold(codec)) return false;
  const auto isOneOf = [codec](const auto& list) { return std::find(list.begin(), list.end(), codec) != list.end(); };
  // Windows Media's packets are of no use without sizes that not every container tells, TTA's without the number of all
  // samples, and bare pixels without a layout.
  constexpr std::array kIncomplete = {AV_CODEC_ID_WMAV1,       AV_CODEC_ID_WMAV2, AV_CODEC_ID_WMAPRO,
                                      AV_CODEC_ID_WMALOSSLESS, AV_CODEC_ID_TTA,   AV_CODEC_ID_RAWVIDEO};
  // The muxer says no only when it is too late.
  constexpr std::array kFragile = {AV_CODEC_ID_FLAC, AV_CODEC_ID_TRUEHD};
  const bool isQuickTime = format_->name == std::string_view("mov");
  if (isOneOf(kIncomplete) || (isQuickTimeFamily() && isOneOf(kFragile))) return false;
  constexpr std::array kOfMPEG4 = {AV_CODEC_ID_OPUS, AV_CODEC_ID_EAC3, AV_CODEC_ID_MP2};
  if (isQuickTime && isOneOf(kOfMPEG4)) return false;
  // These carry in every packet what the header of such a file has to say, or not at all.
  constexpr std::array kNeedHeader = {AV_CODEC_ID_AAC, AV_CODEC_ID_VORBIS, AV_CODEC_ID_OPUS, AV_CODEC_ID_FLAC,
                                      AV_CODEC_ID_ALAC};
  return hasHeader || !isOneOf(kNeedHeader);
}

bool MovieContainer::canHoldSubtitles(AVCodecID codec) const {
  const auto isOneOf = [codec](std::initializer_list<AVCodecID> list) {
    return std::find(list.begin(), list.end(), codec) != list.end();
  };
  if (format_->name == std::string_view("webm")) return codec == AV_CODEC_ID_WEBVTT;
  if (isQuickTimeFamily()) return codec == AV_CODEC_ID_MOV_TEXT;
  return isOneOf({AV_CODEC_ID_SUBRIP, AV_CODEC_ID_ASS, AV_CODEC_ID_TEXT, AV_CODEC_ID_WEBVTT,
                  AV_CODEC_ID_HDMV_PGS_SUBTITLE, AV_CODEC_ID_DVD_SUBTITLE, AV_CODEC_ID_DVB_SUBTITLE});
}

AVCodecID MovieContainer::usualSubtitles() const {
  if (isQuickTimeFamily()) return AV_CODEC_ID_MOV_TEXT;
  return format_->name == std::string_view("webm") ? AV_CODEC_ID_WEBVTT : AV_CODEC_ID_SUBRIP;
}

bool MovieContainer::canHoldArtwork(const Artwork& artwork, const std::vector<MetadataItem>& metadata) const {
  if (artwork.codecName != "mjpeg" && artwork.codecName != "png") return false;
  // FFmpeg 5.1 does not write the table of keys and a cover into one file.
  if (format_->name == std::string_view("mp4")) return !hasOwnKeys(this->metadata(metadata));
  return format_->name == std::string_view("matroska");
}

void MovieContainer::addChapters(AVFormatContext& context, const std::vector<Chapter>& chapters) {
  if (chapters.empty() || context.nb_chapters > 0) return;
  context.chapters = static_cast<AVChapter**>(av_calloc(chapters.size(), sizeof(AVChapter*)));
  if (!context.chapters) return;
  for (const Chapter& chapter : chapters) {
    auto* const added = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
    if (!added) return;
    added->id = context.nb_chapters + 1;
    added->time_base = {1, 1000};
    added->start = unitsOf(chapter.timeRange.start, added->time_base);
    added->end = unitsOf(chapter.timeRange.end(), added->time_base);
    // A track of titles needs one for each chapter.
    const std::string title = chapter.title.empty() ? fmt::format("Chapter {}", added->id) : chapter.title;
    av_dict_set(&added->metadata, "title", title.c_str(), 0);
    context.chapters[context.nb_chapters++] = added;
  }
}

AVStream* MovieContainer::addArtwork(AVFormatContext& context, const Artwork& artwork) const {
  AVStream* const stream = avformat_new_stream(&context, nullptr);
  if (!stream) return nullptr;
  const bool isPng = artwork.codecName == "png";
  AVCodecParameters& parameters = *stream->codecpar;
  parameters.codec_id = isPng ? AV_CODEC_ID_PNG : AV_CODEC_ID_MJPEG;
  stream->disposition = AV_DISPOSITION_ATTACHED_PIC;
  stream->time_base = {1, 1000};
  parameters.codec_type = AVMEDIA_TYPE_VIDEO;
  // The muxer wants a size, and stores none.
  parameters.width = parameters.height = 1;
  if (isQuickTimeFamily()) return stream;
  parameters.codec_type = AVMEDIA_TYPE_ATTACHMENT;
  parameters.extradata = static_cast<std::uint8_t*>(av_mallocz(artwork.bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!parameters.extradata) return nullptr;
  std::copy(artwork.bytes.begin(), artwork.bytes.end(), parameters.extradata);
  parameters.extradata_size = static_cast<int>(artwork.bytes.size());
  av_dict_set(&stream->metadata, "filename", isPng ? "cover.png" : "cover.jpg", 0);
  av_dict_set(&stream->metadata, "mimetype", isPng ? "image/png" : "image/jpeg", 0);
  return stream;
}

bool MovieContainer::needsPacketForHeader(AVCodecID codec) const {
  const bool isMPEG4 = format_->name == std::string_view("mp4");
  return isMPEG4 && (codec == AV_CODEC_ID_AC3 || codec == AV_CODEC_ID_EAC3);
}

int MovieContainer::open(AVIOContext* output, OutputFormat& context) const {
  AVFormatContext* opened = nullptr;
  const int result = avformat_alloc_output_context2(&opened, format_, nullptr, nullptr);
  context.reset(opened);
  if (result < 0) return result;
  opened->pb = output;
  opened->flags |= AVFMT_FLAG_CUSTOM_IO;
  opened->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
  return 0;
}

AVStream* MovieContainer::addStream(AVFormatContext& context, const TrackFormat& format,
                                    const TrackDescription& description) const {
  AVStream* const stream = avformat_new_stream(&context, nullptr);
  if (!stream) return nullptr;
  avcodec_parameters_copy(stream->codecpar, format.parameters);
  if (!isQuickTimeFamily()) stream->codecpar->codec_tag = 0;
  stream->time_base = format.timeBase;
  stream->avg_frame_rate = format.frameRate;
  stream->sample_aspect_ratio = format.parameters->sample_aspect_ratio;
  const std::string language = languageOf(description.languageCode, format_->name == std::string_view("mov"));
  if (!language.empty()) av_dict_set(&stream->metadata, "language", language.c_str(), 0);
  format.colorVolume.addTo(*stream);
  const auto roll = matroskaRoll(description.transform);
  if (isQuickTimeFamily()) addDisplayMatrix(stream, description.transform);
  if (!isQuickTimeFamily() && roll) addMatroskaRoll(*stream, *roll);
  return stream;
}

std::vector<MetadataItem> MovieContainer::metadata(std::vector<MetadataItem> items) const {
  const auto isDate = [](const MetadataItem& item) { return item.key == std::string_view(kMetadataCreationDate); };
  const std::time_t now = std::time(nullptr);
  const auto date = std::find_if(items.begin(), items.end(), isDate);
  const bool isQuickTime = std::string_view(format_->name) == "mov";
  const std::string localDate =
      date == items.end() ? fmt::format("{:%Y-%m-%dT%H:%M:%S%z}", fmt::localtime(now)) : date->value;
  if (date == items.end()) {
    items.push_back({kMetadataCreationDate, fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(now))});
  }
  if (!isQuickTime) return items;
  constexpr std::array<std::pair<const char*, const char*>, 6> kNames{
      {{kMetadataTitle, "com.apple.quicktime.title"},
       {kMetadataLocation, "com.apple.quicktime.location.ISO6709"},
       {kMetadataArtist, "com.apple.quicktime.artist"},
       {kMetadataComment, "com.apple.quicktime.comment"},
       {kMetadataMake, "com.apple.quicktime.make"},
       {kMetadataModel, "com.apple.quicktime.model"}}};
  const auto given = items;
  for (const auto& [key, name] : kNames) {
    for (const MetadataItem& item : given) {
      if (item.key == key) items.push_back({name, item.value});
    }
  }
  items.push_back({"com.apple.quicktime.creationdate", localDate});
  return items;
}

CodecDictionary MovieContainer::muxerOptions(double fragmentSeconds, const std::vector<MetadataItem>& metadata,
                                             int videoTimescale, bool isHeaderDelayed) const {
  if (isQuickTimeFamily()) {
    // Fragments begin at their samples' own times, so that the muxer makes no edit list, which would have to wait for
    // a track's first packet.
    std::string flags = "frag_custom+empty_moov+default_base_moof+frag_discont";
    if (isHeaderDelayed) flags += "+delay_moov";
    auto options = quickTimeOptions(std::move(flags), metadata, videoTimescale);
    AVDictionary* dictionary = options.release();
    av_dict_set(&dictionary, "use_editlist", "0", 0);
    return CodecDictionary(dictionary);
  }
  AVDictionary* options = nullptr;
  av_dict_set_int(&options, "cluster_time_limit", static_cast<std::int64_t>(fragmentSeconds * 1000), 0);
  return CodecDictionary(options);
}

CodecDictionary MovieContainer::indexOptions(const std::vector<MetadataItem>& metadata, int videoTimescale) const {
  AVDictionary* options = quickTimeOptions("", metadata, videoTimescale).release();
  av_dict_set(&options, "use_editlist", "1", 0);
  // A track that begins late begins at its first sample's own time, not at the nearest millisecond.
  if (videoTimescale > 0) av_dict_set_int(&options, "movie_timescale", std::min(videoTimescale, 90000), 0);
  return CodecDictionary(options);
}

bool MovieContainer::hasOwnKeys(const std::vector<MetadataItem>& metadata) const {
  const auto contains = [](const auto& keys, const std::string& key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
  };
  const bool isMPEG4 = format_->name == std::string_view("mp4");
  return std::any_of(metadata.begin(), metadata.end(), [&](const MetadataItem& item) {
    return !contains(kKnown, item.key) && !(isMPEG4 && contains(kKnownInMPEG4, item.key));
  });
}

CodecDictionary MovieContainer::quickTimeOptions(std::string flags, const std::vector<MetadataItem>& metadata,
                                                 int videoTimescale) const {
  AVDictionary* options = nullptr;
  if (hasOwnKeys(metadata)) flags += "+use_metadata_tags";
  if (!flags.empty()) av_dict_set(&options, "movflags", flags.c_str(), 0);
  if (videoTimescale > 0) av_dict_set_int(&options, "video_track_timescale", videoTimescale, 0);
  return CodecDictionary(options);
}

}  // namespace tavrel
