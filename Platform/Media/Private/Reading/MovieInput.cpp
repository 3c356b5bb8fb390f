#include "Platform/Media/Private/Reading/MovieInput.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/FFmpegLog.h"

namespace tavrel {
namespace {

/// Demuxers that would take a text or a single picture for a movie.
bool isNoMovie(std::string_view demuxer) {
  return demuxer == "tty" || demuxer == "image2" || demuxer.ends_with("_pipe");
}

Expected<void> checkRegularFile(const std::filesystem::path& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) {
    // Without an error code of its own, the status of a missing file is no failure.
    const std::error_code reason = error ? error : std::make_error_code(std::errc::no_such_file_or_directory);
    return tl::unexpected(unreadableMovie(path, reason.message(), MediaErrorCode::unreadableFile));
  }
  // Opening a pipe could wait for ever.
  if (!std::filesystem::is_regular_file(status)) {
    return tl::unexpected(unreadableMovie(path, "it is not a regular file", MediaErrorCode::unreadableFile));
  }
  return {};
}

}  // namespace

Error unreadableMovie(const std::filesystem::path& path, const std::string& reason, MediaErrorCode code) {
  return makeError(code, fmt::format("{} is not a movie that can be read: {}", path.string(), reason));
}

namespace {

/// With the demuxer that the file's bytes tell unless one is given.
Expected<InputFormat> openedWith(const AVInputFormat* demuxer, const std::filesystem::path& path,
                                 std::int64_t searchedBytes) {
  // The prefix keeps a colon in the name from being taken for a protocol; nothing but files is opened from inside
  // files.
  const std::string url = "file:" + path.string();
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  if (searchedBytes > 0) {
    av_dict_set_int(&options, "probesize", searchedBytes, 0);
    av_dict_set_int(&options, "analyzeduration", std::numeric_limits<std::int64_t>::max(), 0);
    av_dict_set_int(&options, "scan_all_pmts", 1, 0);  // of a transport stream: also those after the first
  }
  AVFormatContext* opened = nullptr;
  const int result = avformat_open_input(&opened, url.c_str(), demuxer, &options);
  av_dict_free(&options);
  if (result < 0) {
    const auto usual =
        result == AVERROR_INVALIDDATA ? MediaErrorCode::unknownFileFormat : MediaErrorCode::unreadableFile;
    return tl::unexpected(unreadableMovie(path, ffmpegErrorText(result), mediaErrorCode(result, usual)));
  }
  return InputFormat(opened);
}

/// A camera's stream of JPEG pictures looks like one of them.
bool isStreamOfJPEGs(AVFormatContext& file) {
  if (file.iformat->name != std::string_view("jpeg_pipe")) return false;
  const Packet packet(av_packet_alloc());
  int pictures = 0;
  for (; packet && pictures < 2 && av_read_frame(&file, packet.get()) >= 0; ++pictures) av_packet_unref(packet.get());
  return pictures == 2;
}

}  // namespace

Expected<InputFormat> openMovieInput(const std::filesystem::path& path, std::int64_t searchedBytes) {
  if (auto regular = checkRegularFile(path); !regular) return tl::unexpected(regular.error());
  quietFFmpegLog();
  auto opened = openedWith(nullptr, path, searchedBytes);
  if (opened && isStreamOfJPEGs(**opened)) opened = openedWith(av_find_input_format("mjpeg"), path, searchedBytes);
  if (!opened) return opened;
  InputFormat file = std::move(*opened);
  if (isNoMovie(file->iformat->name)) {
    return tl::unexpected(unreadableMovie(path, "it is a text or a picture", MediaErrorCode::unknownFileFormat));
  }
  const int found = avformat_find_stream_info(file.get(), nullptr);
  if (found < 0) {
    const MediaErrorCode code = mediaErrorCode(found, MediaErrorCode::damagedFile);
    return tl::unexpected(unreadableMovie(path, ffmpegErrorText(found), code));
  }
  return file;
}

std::int64_t timelineOffset(const AVFormatContext& file) {
  const bool hasEditLists = std::string_view(file.iformat->name).find("mov") != std::string_view::npos;
  if (file.start_time == AV_NOPTS_VALUE) return 0;
  // A part of a broadcast keeps its clock, with no edit list to say so; nobody waits so long for a movie to begin.
  constexpr std::int64_t kLongestWait = std::int64_t{10} * AV_TIME_BASE;
  if (hasEditLists) return file.start_time > kLongestWait ? file.start_time : 0;
  // Just before 0 there is what a decoder needs first, unless a counter wraps in the file.
  constexpr std::int64_t kLongestPriming = AV_TIME_BASE / 10;
  const bool mayWrap = file.nb_streams > 0 && file.streams[0]->pts_wrap_bits < 64;
  const bool isPriming = !mayWrap && file.start_time < 0 && file.start_time >= -kLongestPriming;
  return isPriming ? 0 : file.start_time;
}

bool isSubtitle(const AVStream& stream) {
  return stream.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE && stream.codecpar->codec_id != AV_CODEC_ID_NONE;
}

bool isArtwork(const AVStream& stream) { return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0; }

bool isMedia(const AVStream& stream) {
  const AVMediaType type = stream.codecpar->codec_type;
  return (type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO) && !isArtwork(stream) &&
         avcodec_find_decoder(stream.codecpar->codec_id);
}

bool isPlayable(const AVStream& stream) {
  const AVCodecParameters& parameters = *stream.codecpar;
  const bool isKnown = parameters.codec_type == AVMEDIA_TYPE_VIDEO
                           ? parameters.width > 0 && parameters.height > 0
                           : parameters.sample_rate > 0 && parameters.ch_layout.nb_channels > 0;
  return isKnown && isMedia(stream);
}

bool isReadable(const AVStream& stream) { return isPlayable(stream) || isSubtitle(stream); }

}  // namespace tavrel
