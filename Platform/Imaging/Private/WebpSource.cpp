#include <webp/decode.h>
#include <webp/demux.h>

#include <utility>

#include "Platform/Imaging/Private/AnimationSource.h"
#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/Exif.h"

namespace tavrel {
namespace {

/// Asked for by number, from 1 on.
class FrameIterator {
 public:
  FrameIterator(const WebPDemuxer* demuxer, std::size_t index)
      : isThere_(WebPDemuxGetFrame(demuxer, static_cast<int>(index) + 1, &iterator_) != 0) {}
  FrameIterator(const FrameIterator&) = delete;
  FrameIterator& operator=(const FrameIterator&) = delete;
  ~FrameIterator() { WebPDemuxReleaseIterator(&iterator_); }

  bool isThere() const { return isThere_; }
  const WebPIterator* operator->() const { return &iterator_; }

 private:
  WebPIterator iterator_{};
  bool isThere_;
};

/// WebP pictures, still ones too, through libwebp.
class WebpSource : public AnimationSource {
 public:
  using AnimationSource::AnimationSource;

  Expected<void> readStructure() {
    const WebPData file = {bytes().data(), bytes().size()};
    WebPDemuxState state = WEBP_DEMUX_PARSE_ERROR;
    demuxer_.reset(WebPDemuxPartial(&file, &state));
    if (!demuxer_) return damagedPicture(name(), state == WEBP_DEMUX_PARSE_ERROR ? "it is no WebP" : "it is cut off");
    if (auto size = setCanvasSize(WebPDemuxGetI(demuxer_.get(), WEBP_FF_CANVAS_WIDTH),
                                  WebPDemuxGetI(demuxer_.get(), WEBP_FF_CANVAS_HEIGHT));
        !size) {
      return size;
    }
    if ((WebPDemuxGetI(demuxer_.get(), WEBP_FF_FORMAT_FLAGS) & ANIMATION_FLAG) != 0) {
      setLoopCount(static_cast<int>(WebPDemuxGetI(demuxer_.get(), WEBP_FF_LOOP_COUNT)));
    }
    ImageMetadata metadata = {.exif = exifBlockOf(chunk("EXIF")), .xmp = chunk("XMP "), .colorProfile = chunk("ICCP")};
    const std::size_t count = WebPDemuxGetI(demuxer_.get(), WEBP_FF_FRAME_COUNT);
    if (count == 1) setOrientation(orientationOfExif(metadata.exif));
    setMetadata(std::move(metadata));
    for (std::size_t i = 0; i < count && addFrame(i); ++i) continue;
    return frames().empty() ? damagedPicture(name(), "it has no frame that can be read") : Expected<void>{};
  }

  const char* type() const override { return "image/webp"; }

 private:
  struct Deleter {
    void operator()(WebPDemuxer* demuxer) const { WebPDemuxDelete(demuxer); }
  };

  Data chunk(const char* name) const {
    WebPChunkIterator iterator{};
    Data bytes;
    if (WebPDemuxGetChunk(demuxer_.get(), name, 1, &iterator) != 0)
      bytes.assign(iterator.chunk.bytes, iterator.chunk.bytes + iterator.chunk.size);
    WebPDemuxReleaseChunkIterator(&iterator);
    return bytes;
  }

  bool addFrame(std::size_t index) {
    const FrameIterator frame(demuxer_.get(), index);
    if (!frame.isThere() || frame->fragment.size == 0) return false;
    return AnimationSource::addFrame({.left = frame->x_offset,
                                      .top = frame->y_offset,
                                      .width = frame->width,
                                      .height = frame->height,
                                      .disposal = frame->dispose_method == WEBP_MUX_DISPOSE_BACKGROUND
                                                      ? AnimationFrame::Disposal::clear
                                                      : AnimationFrame::Disposal::keep,
                                      .isOpaque = frame->blend_method == WEBP_MUX_NO_BLEND || frame->has_alpha == 0,
                                      .delay = frame->duration / 1000.0});
  }

  std::optional<std::string> draw(std::size_t index, Bitmap& canvas) override {
    const FrameIterator stored(demuxer_.get(), index);
    const AnimationFrame& frame = frames()[index];
    Bitmap picture(frame.width, frame.height);
    const bool isDecoded =
        stored.isThere() && WebPDecodeBGRAInto(stored->fragment.bytes, stored->fragment.size, picture.pixels.data(),
                                               picture.pixels.size(), picture.bytesPerRow()) != nullptr;
    if (!isDecoded)
      return stored.isThere() && stored->complete == 0 ? "it is cut off" : "its picture cannot be decoded";
    convertColors(picture);
    lay(picture, frame, !frame.isOpaque, canvas);
    return std::nullopt;
  }

  std::unique_ptr<WebPDemuxer, Deleter> demuxer_;
};

}  // namespace

Expected<std::shared_ptr<ImageSource>> createWebpSource(std::shared_ptr<DataProvider> data, std::string name) {
  return createAnimation<WebpSource>(std::move(data), std::move(name));
}

}  // namespace tavrel
