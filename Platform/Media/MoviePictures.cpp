#include "Platform/Media/MoviePictures.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Imaging/ImagingError.h"
#include "Platform/Media/Private/Reading/BgraConverter.h"
#include "Platform/Media/Private/Reading/MovieInput.h"
#include "Platform/Media/Private/Reading/TrackDecoder.h"

namespace tavrel {
namespace {

/// Bytes under a name by which they can be opened like a file.
class FileInMemory {
 public:
  explicit FileInMemory(std::span<const std::uint8_t> bytes) : descriptor_(memfd_create("tavrel-movie", MFD_CLOEXEC)) {
    while (descriptor_ >= 0 && !bytes.empty()) {
      const ssize_t written = write(descriptor_, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return;
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    isWhole_ = descriptor_ >= 0;
  }
  FileInMemory(const FileInMemory&) = delete;
  FileInMemory& operator=(const FileInMemory&) = delete;
  ~FileInMemory() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  bool isWhole() const { return isWhole_; }
  std::filesystem::path path() const { return fmt::format("/proc/self/fd/{}", descriptor_); }

 private:
  int descriptor_;
  bool isWhole_ = false;
};

class MoviePictures : public ImageSource {
 public:
  MoviePictures(const std::shared_ptr<DataProvider>& data, std::string name)
      : name_(std::move(name)), file_(data->bytes()) {}

  Expected<void> readStructure() {
    if (!file_.isWhole()) return failure(MediaErrorCode::allocationFailed, fmt::format("no memory for {}", name_));
    auto input = openMovieInput(file_.path());
    if (!input) return tl::unexpected(input.error());
    const int track = pictureTrackOf(**input);
    if (track < 0) return failure(MediaErrorCode::noPlayableTrack, fmt::format("{} has no pictures", name_));
    readTimes(**input, track);
    auto decoder = TrackDecoder::open(file_.path(), track, {.alpha = TrackDecoder::Alpha::kept});
    if (!decoder) return tl::unexpected(decoder.error());
    decoder_ = std::move(*decoder);
    if (auto checked = checkSize(); !checked) return checked;
    if (times_.empty()) return failure(MediaErrorCode::damagedFile, fmt::format("{} has no pictures", name_));
    return {};
  }

  const char* type() const override { return "video"; }
  std::size_t count() const override { return times_.size(); }
  std::optional<int> loopCount() const override { return 0; }
  void giveUp() override { isGivenUp_ = true; }

  ImageProperties properties(std::size_t index) const override {
    if (index >= count()) return {};
    ImageProperties properties;
    properties.width = static_cast<std::size_t>(decoder_->parameters().width);
    properties.height = static_cast<std::size_t>(decoder_->parameters().height);
    const std::int64_t end = index + 1 < count() ? times_[index + 1] : end_;
    const double seconds = static_cast<double>(end - times_[index]) * av_q2d(decoder_->timeBase());
    properties.delayTime = properties.unclampedDelayTime = seconds;
    return properties;
  }

  Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) override {
    if (index >= count())
      return failure(ImagingErrorCode::noSuchPicture, fmt::format("{} has no frame {}", name_, index));
    if (last_ && lastIndex_ == index) return last_;
    if (auto there = goTo(index); !there) return tl::unexpected(there.error());
    while (const AVFrame* const frame = nextFrame()) {
      next_ = indexOf(frame->pts) + 1;
      if (*next_ > index) return remember(index, *frame);
    }
    if (isGivenUp_) return failure(ImagingErrorCode::givenUp, fmt::format("reading {} was given up", name_));
    return failure(ImagingErrorCode::damagedPicture, fmt::format("{} is damaged in frame {}", name_, index));
  }

 private:
  static int pictureTrackOf(const AVFormatContext& input) {
    for (unsigned i = 0; i < input.nb_streams; ++i) {
      const AVStream& stream = *input.streams[i];
      if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && isPlayable(stream)) return static_cast<int>(i);
    }
    return -1;
  }

  /// When pictures are shown, from the packets, which need not be decoded for that.
  void readTimes(AVFormatContext& input, int track) {
    const AVStream& stream = *input.streams[track];
    const auto pixels =
        static_cast<std::size_t>(stream.codecpar->width) * static_cast<std::size_t>(stream.codecpar->height);
    const std::size_t most = kMostPixelsOfAnimationPictures / std::max<std::size_t>(pixels, 1);
    const std::int64_t offset = av_rescale_q(timelineOffset(input), AV_TIME_BASE_Q, stream.time_base);
    const Packet packet(av_packet_alloc());
    while (packet && av_read_frame(&input, packet.get()) >= 0) {
      const bool isShown = packet->stream_index == track && (packet->flags & AV_PKT_FLAG_DISCARD) == 0;
      const std::int64_t time = packet->pts == AV_NOPTS_VALUE ? packet->dts : packet->pts;
      if (isShown && time != AV_NOPTS_VALUE && time >= offset) {
        times_.push_back(time - offset);
        end_ = std::max(end_, time - offset + packet->duration);
      }
      av_packet_unref(packet.get());
    }
    std::sort(times_.begin(), times_.end());
    times_.erase(std::unique(times_.begin(), times_.end()), times_.end());
    if (times_.size() > most) {
      end_ = times_[most];
      times_.resize(most);
    }
  }

  Expected<void> checkSize() const {
    const AVCodecParameters& stored = decoder_->parameters();
    const auto pixels = static_cast<std::size_t>(stored.width) * static_cast<std::size_t>(stored.height);
    if (pixels <= kMostPixelsOfAnimation) return {};
    return failure(ImagingErrorCode::pictureTooLarge,
                   fmt::format("{} is too large: {}x{}, the most is {} pixels for an animation", name_, stored.width,
                               stored.height, kMostPixelsOfAnimation));
  }

  /// Frames far ahead may have a key frame before them; where not, the decoder comes to them by itself.
  Expected<void> goTo(std::size_t index) {
    constexpr std::size_t kNear = 4;
    const bool isNear = next_ && *next_ <= index && index - *next_ <= kNear;
    if (isNear) return {};
    next_ = index;
    return index == 0 ? decoder_->rewind() : decoder_->seek(times_[index]);
  }

  const AVFrame* nextFrame() {
    return decoder_->next([this] { return !isGivenUp_; }).value_or(nullptr);
  }

  std::size_t indexOf(std::int64_t time) const {
    const auto after = std::upper_bound(times_.begin(), times_.end(), time);
    return static_cast<std::size_t>(std::max<std::ptrdiff_t>(after - times_.begin() - 1, 0));
  }

  Expected<std::shared_ptr<Image>> remember(std::size_t index, const AVFrame& frame) {
    const auto width = static_cast<std::size_t>(frame.width);
    const auto height = static_cast<std::size_t>(frame.height);
    Data pixels(width * height * 4);
    if (auto converted = converter_.convert(frame, pixels.data(), width * 4); !converted) {
      return tl::unexpected(converted.error());
    }
    const auto straight =
        Image::create(width, height, 8, 32, width * 4, bitmapInfo(kBitmapByteOrder32Little, AlphaInfo::first),
                      DataProvider::create(std::move(pixels)));
    last_ = premultipliedImage(straight);
    lastIndex_ = index;
    return last_;
  }

  const std::string name_;
  const FileInMemory file_;
  std::unique_ptr<TrackDecoder> decoder_;
  BgraConverter converter_;
  /// In order, in units of the decoder's time base.
  std::vector<std::int64_t> times_;
  std::int64_t end_ = 0;
  /// The frame that the decoder comes to next.
  std::optional<std::size_t> next_;
  std::shared_ptr<Image> last_;
  std::size_t lastIndex_ = 0;
  std::atomic<bool> isGivenUp_ = false;
};

}  // namespace

Expected<std::shared_ptr<ImageSource>> createMoviePictures(const std::shared_ptr<DataProvider>& data,
                                                           std::string name) {
  auto pictures = std::make_shared<MoviePictures>(data, std::move(name));
  return pictures->readStructure().map([&] { return std::shared_ptr<ImageSource>(pictures); });
}

Expected<std::shared_ptr<ImageSource>> createPictures(const std::shared_ptr<DataProvider>& data, std::string name) {
  auto source = ImageSource::create(data, name);
  if (source || source.error().code != static_cast<std::int64_t>(ImagingErrorCode::unknownFormat)) return source;
  auto movie = createMoviePictures(data, std::move(name));
  if (movie) return movie;
  source.error().description += ", nor a movie that can be read";
  return source;
}

}  // namespace tavrel
