#include "Platform/Media/Private/Writing/MovieMuxer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

extern "C" {
#include <libavutil/opt.h>
}

#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/Writing/MatroskaRotation.h"
#include "Platform/Media/Private/Writing/MovieBoxes.h"

namespace tavrel {
namespace {

// What a second of pictures, 30 of them, and of sound takes in an index at most, and what comes besides.
constexpr std::int64_t kPictureIndexRate = 600;
constexpr std::int64_t kSoundIndexRate = 200;
constexpr std::int64_t kIndexHeadSize = 4096;

}  // namespace

MovieMuxer::MovieMuxer(std::unique_ptr<MovieFileOutput> output, MovieContainer container)
    : output_(std::move(output)), container_(container) {}

Expected<void> MovieMuxer::checked(int result, const char* what) const {
  // The system's reason says more than the muxer's, and the muxer does not always pass it on.
  if (auto status = output_->status(); !status) return status;
  if (result >= 0) return {};
  return tl::unexpected(loggedFFmpegError(MediaErrorCode::writingFailed, result, what));
}

Expected<void> MovieMuxer::addStreams(AVFormatContext& context, const std::vector<const Stream*>& streams) const {
  for (const Stream* const stream : streams) {
    const TrackFormat format{.parameters = stream->parameters.get(),
                             .timeBase = stream->timeBase,
                             .frameRate = stream->frameRate,
                             .colorVolume = stream->colorVolume};
    if (!container_.addStream(context, format, stream->description)) {
      return checked(AVERROR(ENOMEM), "the movie's header cannot be made");
    }
  }
  for (const MetadataItem& item : options_.contents.metadata) {
    av_dict_set(&context.metadata, item.key.c_str(), item.value.c_str(), 0);
  }
  return {};
}

Expected<void> MovieMuxer::addArtwork(AVFormatContext& context) const {
  const auto& artwork = options_.contents.artwork;
  if (!artwork || container_.addArtwork(context, *artwork)) return {};
  return checked(AVERROR(ENOMEM), "the movie's cover cannot be stored");
}

Expected<void> MovieMuxer::writeHeader(Options options, const std::vector<const Stream*>& streams) {
  options_ = std::move(options);
  MovieContents& contents = options_.contents;
  if (contents.artwork && !container_.canHoldArtwork(*contents.artwork, contents.metadata)) contents.artwork.reset();
  contents.metadata = container_.metadata(std::move(contents.metadata));
  if (const int result = container_.open(output_->context(), context_); result < 0) {
    return checked(result, "the movie's header cannot be made");
  }
  const auto isSubtitle = [](const Stream* stream) { return stream->mediaType == MediaType::subtitle; };
  // Subtitles, chapters and a cover come with the index of a regular movie.
  std::vector<const Stream*> own = streams;
  if (container_.isQuickTimeFamily()) std::erase_if(own, isSubtitle);
  if (own.size() < streams.size()) subtitleTimeBase_ = streams.back()->timeBase;
  if (auto added = addStreams(*context_, own); !added) return added;
  if (!container_.isQuickTimeFamily()) {
    MovieContainer::addChapters(*context_, contents.chapters);
    if (auto added = addArtwork(*context_); !added) return added;
  }
  int videoTimescale = 0;
  for (const Stream* const stream : own) {
    timings_.push_back({stream->mediaType, stream->timeBase, stream->decodeLead, AV_NOPTS_VALUE});
    if (stream->mediaType == MediaType::video) videoTimescale = stream->timeBase.den;
    if (container_.needsPacketForHeader(stream->parameters->codec_id)) tracksWithoutHeader_.insert(timings_.size() - 1);
  }
  isHeaderDelayed_ = !tracksWithoutHeader_.empty();
  AVDictionary* dictionary =
      container_.muxerOptions(options_.fragmentSeconds, contents.metadata, videoTimescale, isHeaderDelayed_).release();
  const int result = avformat_write_header(context_.get(), &dictionary);
  av_dict_free(&dictionary);
  if (auto written = checked(result, "the movie's header cannot be written"); !written) return written;
  for (std::size_t i = 0; i < timings_.size(); ++i) {
    timings_[i].lead = av_rescale_q(timings_[i].lead, timings_[i].timeBase, context_->streams[i]->time_base);
  }
  if (!container_.isQuickTimeFamily()) {
    const auto isTurned = [](const Stream* stream) { return matroskaRoll(stream->description.transform).has_value(); };
    if (auto complete = output_->checkpoint(); !complete) return complete;
    if (std::any_of(streams.begin(), streams.end(), isTurned))
      headSize_ = static_cast<std::size_t>(output_->position());
    return flattenTracks();
  }
  if (!options_.staysFragmented) {
    if (auto begun = beginIndex(streams, videoTimescale); !begun) return begun;
  }
  return isHeaderDelayed_ ? Expected<void>() : completeHeader();
}

Expected<void> MovieMuxer::writeEditLists() {
  if (auto complete = output_->checkpoint(); !complete) return complete;
  std::vector<std::int64_t> starts;
  for (const Timing& timing : timings_) starts.push_back(timing.lead);
  if (std::all_of(starts.begin(), starts.end(), [](std::int64_t start) { return start == 0; })) return {};
  const auto fileType = output_->boxAt(0);
  if (!fileType) return tl::unexpected(fileType.error());
  const auto start = static_cast<std::int64_t>(fileType->size());
  const auto moov = output_->boxAt(start);
  if (!moov) return tl::unexpected(moov.error());
  const auto listed = withEditLists(*moov, starts);
  if (auto written = output_->writeAt(start, listed); !written) return written;
  output_->skipTo(start + static_cast<std::int64_t>(listed.size()));
  return {};
}

Expected<void> MovieMuxer::flattenTracks() {
  if (headSize_ == 0) return {};
  auto head = output_->bytesAt(0, headSize_);
  if (!head) return tl::unexpected(head.error());
  return flattenMatroskaTracks(*head) ? output_->writeAt(0, *head) : Expected<void>();
}

Expected<void> MovieMuxer::beginIndex(const std::vector<const Stream*>& streams, int videoTimescale) {
  index_.emplace(container_);
  if (!index_->context()) return checked(AVERROR(ENOMEM), "the movie's index cannot be made");
  if (auto added = addStreams(*index_->context(), streams); !added) return added;
  if (auto added = addArtwork(*index_->context()); !added) return added;
  index_->begin(container_.indexOptions(options_.contents.metadata, videoTimescale));
  return {};
}

Expected<void> MovieMuxer::completeHeader() {
  if (auto listed = writeEditLists(); !listed || !index_) return listed ? output_->checkpoint() : listed;
  std::int64_t bytesPerSecond = 0;
  for (const Timing& timing : timings_) {
    bytesPerSecond += timing.mediaType == MediaType::video ? kPictureIndexRate : kSoundIndexRate;
  }
  const auto tables = std::llround(options_.indexRoom * static_cast<double>(bytesPerSecond));
  const MovieContents& contents = options_.contents;
  constexpr std::int64_t kChapterSize = 256;
  const std::int64_t beside = (contents.artwork ? static_cast<std::int64_t>(contents.artwork->bytes.size()) : 0) +
                              static_cast<std::int64_t>(contents.chapters.size()) * kChapterSize;
  if (auto complete = output_->checkpoint(); !complete) return complete;
  auto regular = RegularMovie::reserve(*output_, tables > 0 ? tables + kIndexHeadSize + beside : 0);
  if (!regular) return tl::unexpected(regular.error());
  regular_ = *regular;
  return output_->checkpoint();
}

Expected<void> MovieMuxer::write(std::size_t stream, Packet packet) {
  if (stream >= timings_.size()) {
    if (index_) index_->addLast(stream, std::move(packet), subtitleTimeBase_);
    return {};
  }
  Timing& timing = timings_[stream];
  const bool isBeforeStart = isPriming(timing.mediaType, *packet);
  packet->stream_index = static_cast<int>(stream);
  const AVCodecParameters& parameters = *context_->streams[stream]->codecpar;
  // Of Opus, Matroska's header says what is not heard (FFmpeg 5.1 does not say it of AAC); all its times are later by
  // as much.
  const bool isDelayTold = !container_.isQuickTimeFamily() && parameters.codec_id == AV_CODEC_ID_OPUS;
  if (isDelayTold) {
    const std::int64_t delay = av_rescale_q(parameters.initial_padding, {1, parameters.sample_rate}, timing.timeBase);
    packet->pts += delay;
    packet->dts += delay;
  }
  av_packet_rescale_ts(packet.get(), timing.timeBase, context_->streams[stream]->time_base);
  if (isBeforeStart && !isDelayTold) return writePriming(*packet);
  tracksWithoutHeader_.erase(stream);
  if (stream == 0) setInterleaving(true);
  if (index_) index_->add(*packet);
  if (container_.isQuickTimeFamily()) {
    // A time before the track's own 0 cannot be said. A track lasts from the first sample's decoding on.
    const bool isFirst = timing.lastDecodeTime == AV_NOPTS_VALUE;
    const std::int64_t earliest = isFirst ? 0 : timing.lastDecodeTime + 1;
    const std::int64_t decodeTime = isFirst ? packet->pts : packet->dts + timing.lead;
    packet->pts += timing.lead;
    packet->dts = timing.lastDecodeTime = std::max(decodeTime, earliest);
    packet->pts = std::max(packet->pts, packet->dts);
  }
  return checked(av_write_frame(context_.get(), packet.get()), "a packet cannot be written to the movie");
}

Expected<void> MovieMuxer::writePriming(const AVPacket& packet) {
  // In fragments many readers would play everything later by as much. Without it the first 20 ms fade in.
  if (!index_ || isHeaderDelayed_) return {};
  index_->addPlaced(packet, output_->position() + kBoxHeaderSize);
  return writeData({packet.data, static_cast<std::size_t>(packet.size)});
}

Expected<void> MovieMuxer::writeData(std::span<const std::uint8_t> bytes) {
  AVIOContext* const output = output_->context();
  avio_wb32(output, static_cast<unsigned>(bytes.size() + kBoxHeaderSize));
  avio_write(output, reinterpret_cast<const unsigned char*>("mdat"), 4);
  avio_write(output, bytes.data(), static_cast<int>(bytes.size()));
  return output_->status();
}

void MovieMuxer::setInterleaving(bool isOn) {
  // A player should not have to load all of a fragment's pictures before its first sound. FFmpeg 5.1 misplaces the
  // samples of an interleaved fragment without any of the first stream.
  constexpr int kSamples = 4;
  if (container_.isQuickTimeFamily()) av_opt_set_int(context_->priv_data, "frag_interleave", isOn ? kSamples : 0, 0);
}

void MovieMuxer::skipTo(std::size_t stream, std::int64_t dts) {
  // An empty packet is not stored; it makes the muxer notice, before it checks the next packet's time, that the
  // fragment need not follow the one before.
  const Packet empty(av_packet_alloc());
  empty->stream_index = static_cast<int>(stream);
  empty->dts = empty->pts = dts;
  av_packet_rescale_ts(empty.get(), timings_[stream].timeBase, context_->streams[stream]->time_base);
  empty->dts = empty->pts += timings_[stream].lead;
  av_write_frame(context_.get(), empty.get());
}

Expected<void> MovieMuxer::flush() {
  const bool hasBoxes = container_.isQuickTimeFamily();
  if (std::exchange(isHeaderDelayed_, false)) {
    const int written = av_write_frame(context_.get(), nullptr);
    if (auto checkedHeader = checked(written, "the movie's header cannot be written"); !checkedHeader)
      return checkedHeader;
    if (auto complete = completeHeader(); !complete) return complete;
  }
  if (hasBoxes) {
    if (auto ready = output_->hideNextBox(); !ready) return ready;
  }
  const std::int64_t start = output_->position();
  const int result = av_write_frame(context_.get(), nullptr);
  if (auto flushed = checked(result, "a fragment of the movie cannot be written"); !flushed) return flushed;
  // Fragments start at their first sample's own time, whatever durations the one before announced.
  if (hasBoxes) av_opt_set(context_->priv_data, "movflags", "+frag_discont", 0);
  setInterleaving(false);
  if (auto complete = output_->checkpoint(); !complete || !hasBoxes) return complete;
  // Some readers do not open a file that ends inside a moof: it appears when it and its data are there.
  constexpr std::array<std::uint8_t, 4> kMovieFragment{'m', 'o', 'o', 'f'};
  if (auto shown = output_->writeAt(start + 4, kMovieFragment); !shown || !index_) return shown;
  const auto description = output_->boxAt(start);
  if (!description) return tl::unexpected(description.error());
  index_->place(*description, start);
  return {};
}

Expected<void> MovieMuxer::finish() {
  const auto tables =
      index_ ? index_->finish(options_.contents, output_->position() + kBoxHeaderSize) : MovieIndex::Tables();
  if (!tables.moov.empty()) {
    if (!tables.data.empty()) {
      if (auto written = writeData(tables.data); !written) return written;
      if (auto complete = output_->checkpoint(); !complete) return complete;
    }
    return regular_->complete(*output_, tables.moov);
  }
  if (auto ended = checked(av_write_trailer(context_.get()), "the movie cannot be completed"); !ended) return ended;
  if (auto complete = output_->checkpoint(); !complete) return complete;
  return flattenTracks();  // the muxer has written them anew
}

}  // namespace tavrel
