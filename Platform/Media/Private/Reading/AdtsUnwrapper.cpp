#include "Platform/Media/Private/Reading/AdtsUnwrapper.h"

#include <cstring>

#include "Platform/Media/MediaError.h"

namespace tavrel {
namespace {

// Until all tracks have begun; one that begins later than this has no header to be copied with.
constexpr int kMostPackets = 500;

void setHeader(AVCodecParameters& parameters, const std::uint8_t* header, std::size_t size) {
  parameters.extradata = static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!parameters.extradata) return;
  std::memcpy(parameters.extradata, header, size);
  parameters.extradata_size = static_cast<int>(size);
}

}  // namespace

bool AdtsUnwrapper::isNeededFor(const AVStream& stream) {
  return stream.codecpar->codec_id == AV_CODEC_ID_AAC && stream.codecpar->extradata_size == 0;
}

Expected<AdtsUnwrapper> AdtsUnwrapper::create(const AVCodecParameters& parameters) {
  AVBSFContext* made = nullptr;
  int result = av_bsf_alloc(av_bsf_get_by_name("aac_adtstoasc"), &made);
  Filter filter(made);
  if (result >= 0) result = avcodec_parameters_copy(made->par_in, &parameters);
  if (result >= 0) result = av_bsf_init(made);
  if (result >= 0) return AdtsUnwrapper(std::move(filter));
  return failure(MediaErrorCode::unsupportedFormat, "this FFmpeg cannot take AAC out of a transport stream");
}

bool AdtsUnwrapper::unwrap(AVPacket& packet) {
  const bool isTaken = av_bsf_send_packet(filter_.get(), &packet) >= 0;
  if (isTaken && av_bsf_receive_packet(filter_.get(), &packet) >= 0) return true;
  av_packet_unref(&packet);
  return false;
}

void AdtsUnwrapper::completeHeaders(AVFormatContext& file) {
  const auto lacksHeader = [&](unsigned i) { return isNeededFor(*file.streams[i]); };
  unsigned lacking = 0;
  for (unsigned i = 0; i < file.nb_streams; ++i) lacking += lacksHeader(i) ? 1 : 0;
  const Packet packet(av_packet_alloc());
  for (int i = 0; packet && lacking > 0 && i < kMostPackets && av_read_frame(&file, packet.get()) >= 0; ++i) {
    if (lacksHeader(static_cast<unsigned>(packet->stream_index))) {
      AVCodecParameters& parameters = *file.streams[packet->stream_index]->codecpar;
      auto unwrapper = create(parameters);
      std::size_t size = 0;
      const bool isUnwrapped = unwrapper && unwrapper->unwrap(*packet);
      const std::uint8_t* const header =
          isUnwrapped ? av_packet_get_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, &size) : nullptr;
      if (header) setHeader(parameters, header, size);
      lacking -= header ? 1 : 0;
    }
    av_packet_unref(packet.get());
  }
}

}  // namespace tavrel
