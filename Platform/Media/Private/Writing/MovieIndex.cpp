#include "Platform/Media/Private/Writing/MovieIndex.h"

#include <cerrno>
#include <cstring>
#include <limits>

#include "Platform/Media/Private/Writing/MovieBoxes.h"

// libavformat makes a moov only of packets that it wrote itself. So a second muxer gets the same packets, and its bytes
// go nowhere but the moov's; before each run of samples its output is moved to where they lie in the file, as the
// fragment's own description says, and its tables tell the right places. An hour of pictures and sound costs 17 MB
// of memory and 0.08 s to finish. Boxes written by hand would need a quarter of the memory, and all that the muxer
// knows about codecs, colours, edit lists and sample groups once more.
namespace tavrel {
namespace {

constexpr int kBufferSize = 32 * 1024;
constexpr std::int64_t kBeyondAll = std::int64_t{1} << 60;
constexpr std::int64_t kLongestDuration = std::numeric_limits<std::int32_t>::max();

using Bytes = std::span<const std::uint8_t>;

}  // namespace

MovieIndex::MovieIndex(const MovieContainer& container) : keptFrom_(kBeyondAll) {
  auto* const buffer = static_cast<std::uint8_t*>(av_malloc(kBufferSize));
  sink_ = buffer ? avio_alloc_context(buffer, kBufferSize, 1, this, nullptr, write, seek) : nullptr;
  if (!sink_) {
    av_free(buffer);
    return;
  }
  sink_->direct = 1;  // samples need not be copied to go nowhere
  container.open(sink_, context_);
}

MovieIndex::~MovieIndex() {
  context_.reset();
  if (sink_) av_freep(&sink_->buffer);
  avio_context_free(&sink_);
}

int MovieIndex::write(void* opaque, std::uint8_t* bytes, int size) {
  auto& self = *static_cast<MovieIndex*>(opaque);
  if (self.position_ >= self.keptFrom_) {
    const auto start = static_cast<std::size_t>(self.position_ - self.keptFrom_);
    const auto length = static_cast<std::size_t>(size);
    if (self.kept_.size() < start + length) self.kept_.resize(start + length);
    std::memcpy(self.kept_.data() + start, bytes, length);
  }
  self.position_ += size;
  return size;
}

std::int64_t MovieIndex::seek(void* opaque, std::int64_t offset, int whence) {
  if ((whence & ~AVSEEK_FORCE) != SEEK_SET) return AVERROR(EINVAL);
  return static_cast<MovieIndex*>(opaque)->position_ = offset;
}

void MovieIndex::begin(CodecDictionary options) {
  AVDictionary* dictionary = options.release();
  isUsable_ = avformat_write_header(context_.get(), &dictionary) >= 0;
  av_dict_free(&dictionary);
  // The muxer would put an empty text before other samples, where the file has none.
  setSubtitleCodec(AV_CODEC_ID_TEXT);
  fragment_.resize(context_->nb_streams);
  lastTimes_.resize(context_->nb_streams, AV_NOPTS_VALUE);
}

void MovieIndex::add(const AVPacket& packet) {
  const auto stream = static_cast<std::size_t>(packet.stream_index);
  std::int64_t& last = lastTimes_[stream];
  if (last != AV_NOPTS_VALUE && packet.dts - last > kLongestDuration) isUsable_ = false;
  last = packet.dts;
  if (!isUsable_) return;
  Packet reference(av_packet_clone(&packet));
  isUsable_ = reference != nullptr;
  if (isUsable_) fragment_[stream].push_back(std::move(reference));
}

void MovieIndex::place(Bytes description, std::int64_t start) {
  forEachBox(description.subspan(kBoxHeaderSize), [&](std::uint32_t type, Bytes content) {
    if (type == MKBETAG('t', 'r', 'a', 'f')) placeTrack(content, start);
  });
  for (const auto& packets : fragment_) isUsable_ = isUsable_ && packets.empty();
}

void MovieIndex::placeTrack(Bytes boxes, std::int64_t start) {
  std::size_t stream = 0;
  forEachBox(boxes, [&](std::uint32_t type, Bytes content) {
    // Tracks are numbered from 1 on, in the order of the streams.
    if (type == MKBETAG('t', 'f', 'h', 'd') && content.size() >= 8) stream = AV_RB32(content.data() + 4) - 1;
    if (type == MKBETAG('t', 'r', 'u', 'n')) placeRun(content, stream, start);
  });
}

void MovieIndex::placeRun(Bytes run, std::size_t stream, std::int64_t start) {
  constexpr std::uint32_t kHasOffset = 1;
  isUsable_ = isUsable_ && run.size() >= 12 && (AV_RB32(run.data()) & kHasOffset) != 0 && stream < fragment_.size();
  if (!isUsable_) return;
  auto& packets = fragment_[stream];
  avio_seek(sink_, start + static_cast<std::int32_t>(AV_RB32(run.data() + 8)), SEEK_SET);
  for (std::uint32_t count = AV_RB32(run.data() + 4); count > 0 && isUsable_; --count) {
    isUsable_ = !packets.empty() && av_write_frame(context_.get(), packets.front().get()) >= 0;
    if (isUsable_) packets.pop_front();
  }
}

void MovieIndex::addPlaced(const AVPacket& packet, std::int64_t start) {
  const Packet reference(av_packet_clone(&packet));
  avio_seek(sink_, start, SEEK_SET);
  isUsable_ = isUsable_ && reference && av_write_frame(context_.get(), reference.get()) >= 0;
}

void MovieIndex::setSubtitleCodec(AVCodecID codec) {
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    AVCodecParameters& parameters = *context_->streams[i]->codecpar;
    if (parameters.codec_type == AVMEDIA_TYPE_SUBTITLE) parameters.codec_id = codec;
  }
}

void MovieIndex::addLast(std::size_t stream, Packet packet, AVRational timeBase) {
  packet->stream_index = static_cast<int>(stream);
  av_packet_rescale_ts(packet.get(), timeBase, context_->streams[stream]->time_base);
  last_.push_back(std::move(packet));
}

MovieIndex::Tables MovieIndex::finish(const MovieContents& contents, std::int64_t dataStart) {
  // Titles of chapters, and what ends subtitles, the muxer writes by itself, just before the moov.
  keptFrom_ = dataStart;
  avio_seek(sink_, dataStart, SEEK_SET);
  setSubtitleCodec(AV_CODEC_ID_MOV_TEXT);
  for (; isUsable_ && !last_.empty(); last_.pop_front())
    isUsable_ = av_write_frame(context_.get(), last_.front().get()) >= 0;
  if (isUsable_ && contents.artwork) isUsable_ = addCover(*contents.artwork);
  MovieContainer::addChapters(*context_, contents.chapters);
  if (!isUsable_ || av_write_trailer(context_.get()) < 0) return {};
  avio_flush(sink_);
  for (std::size_t start = 0; start + kBoxHeaderSize <= kept_.size(); ++start) {
    const std::uint8_t* const box = kept_.data() + start;
    if (AV_RB32(box) != kept_.size() - start || AV_RB32(box + 4) != MKBETAG('m', 'o', 'o', 'v')) continue;
    const auto moov = kept_.begin() + static_cast<std::ptrdiff_t>(start);
    return {{kept_.begin(), moov}, {moov, kept_.end()}};
  }
  return {};
}

bool MovieIndex::addCover(const Artwork& artwork) {
  const Packet packet(av_packet_alloc());
  if (!packet || av_new_packet(packet.get(), static_cast<int>(artwork.bytes.size())) < 0) return false;
  std::memcpy(packet->data, artwork.bytes.data(), artwork.bytes.size());
  packet->stream_index = static_cast<int>(context_->nb_streams) - 1;
  packet->pts = packet->dts = 0;
  packet->flags |= AV_PKT_FLAG_KEY;
  return av_write_frame(context_.get(), packet.get()) >= 0;
}

}  // namespace tavrel
