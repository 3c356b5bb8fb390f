#include "Support/BareMovie.h"

#include <libyuv/convert.h>

extern "C" {
#include <libavutil/opt.h>
}

#include "Support/Comparison.h"

namespace tavrel::benchmarks {

BareMovieWriter::BareMovieWriter(const std::filesystem::path& file, int width, int height, int timescale)
    : width_(width), height_(height) {
  require(avformat_alloc_output_context2(&format_, nullptr, "mov", file.c_str()) >= 0, "a movie");
  const AVCodec* const codec = avcodec_find_encoder_by_name("libx264");
  context_ = avcodec_alloc_context3(codec);
  context_->width = width;
  context_->height = height;
  context_->pix_fmt = AV_PIX_FMT_YUV420P;
  context_->time_base = {1, timescale};
  context_->framerate = {30, 1};
  context_->gop_size = 120;
  context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  av_opt_set(context_->priv_data, "preset", "faster", 0);
  av_opt_set(context_->priv_data, "crf", "20", 0);
  av_opt_set(context_->priv_data, "x264-params", "force-cfr=1", 0);
  require(avcodec_open2(context_, codec, nullptr) >= 0, "libx264");
  stream_ = avformat_new_stream(format_, nullptr);
  avcodec_parameters_from_context(stream_->codecpar, context_);
  stream_->time_base = context_->time_base;
  require(avio_open(&format_->pb, file.c_str(), AVIO_FLAG_WRITE) >= 0, "opening the file");
  AVDictionary* options = nullptr;
  av_dict_set(&options, "movflags", "frag_keyframe+empty_moov", 0);
  av_dict_set(&options, "frag_duration", "1000000", 0);
  require(avformat_write_header(format_, &options) >= 0, "the header");
  av_dict_free(&options);
  frame_ = av_frame_alloc();
  frame_->format = AV_PIX_FMT_YUV420P;
  frame_->width = width;
  frame_->height = height;
  require(av_frame_get_buffer(frame_, 0) >= 0, "a frame");
  packet_ = av_packet_alloc();
}

BareMovieWriter::~BareMovieWriter() {
  avcodec_send_frame(context_, nullptr);
  writePackets();
  av_write_trailer(format_);
  avio_closep(&format_->pb);
  av_packet_free(&packet_);
  av_frame_free(&frame_);
  avcodec_free_context(&context_);
  avformat_free_context(format_);
}

void BareMovieWriter::write(const std::uint8_t* bgra, std::int64_t time) {
  av_frame_make_writable(frame_);
  libyuv::ARGBToI420(bgra, width_ * 4, frame_->data[0], frame_->linesize[0], frame_->data[1], frame_->linesize[1],
                     frame_->data[2], frame_->linesize[2], width_, height_);
  frame_->pts = time;
  require(avcodec_send_frame(context_, frame_) >= 0, "encoding");
  writePackets();
}

void BareMovieWriter::writePackets() {
  while (avcodec_receive_packet(context_, packet_) >= 0) {
    av_packet_rescale_ts(packet_, context_->time_base, stream_->time_base);
    packet_->stream_index = 0;
    require(av_interleaved_write_frame(format_, packet_) >= 0, "writing");
  }
}

void readBareMovie(const std::filesystem::path& file, const std::function<void(const AVFrame&)>& action) {
  AVFormatContext* format = nullptr;
  require(avformat_open_input(&format, file.c_str(), nullptr, nullptr) >= 0, "opening the movie");
  require(avformat_find_stream_info(format, nullptr) >= 0, "the movie's tracks");
  const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  require(index >= 0, "a video track");
  const AVCodec* const codec = avcodec_find_decoder(format->streams[index]->codecpar->codec_id);
  AVCodecContext* context = avcodec_alloc_context3(codec);
  avcodec_parameters_to_context(context, format->streams[index]->codecpar);
  context->thread_count = 0;  // as many as there are cores
  require(avcodec_open2(context, codec, nullptr) >= 0, "a decoder");
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  const auto receive = [&] {
    while (avcodec_receive_frame(context, frame) >= 0) action(*frame);
  };
  while (av_read_frame(format, packet) >= 0) {
    if (packet->stream_index == index) {
      require(avcodec_send_packet(context, packet) >= 0, "decoding");
      receive();
    }
    av_packet_unref(packet);
  }
  avcodec_send_packet(context, nullptr);
  receive();
  av_frame_free(&frame);
  av_packet_free(&packet);
  avcodec_free_context(&context);
  avformat_close_input(&format);
}

}  // namespace tavrel::benchmarks
