#include "EncodingOptions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "Report.h"

namespace tavrel::tool {
namespace {

constexpr std::array<std::pair<const char*, const char*>, 4> kCodecs{
    {{"h264", kVideoCodecH264}, {"hevc", kVideoCodecHEVC}, {"av1", kVideoCodecAV1}, {"vp9", kVideoCodecVP9}}};

/// "2500000", "2500k" or "2.5M", in bits a second.
std::int64_t parsedRate(const std::string& text, const char* option, double least, double most) {
  double rate = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, rate);
  const std::string_view unit(rest, static_cast<std::size_t>(end - rest));
  rate *= unit == "k" ? 1e3 : unit == "M" ? 1e6 : 1;
  const bool isUsable = error == std::errc() && (unit.empty() || unit == "k" || unit == "M");
  if (isUsable && rate >= least && rate <= most) return std::llround(rate);
  throw UsageError(
      fmt::format("{} {}: expected {:.0f} to {:.0f} bits a second, or as 800k or 2.5M", option, text, least, most));
}

/// What the named encoder makes, as a value of `kVideoCodecKey`; nothing when this machine has none of the name.
std::optional<std::string> codecOfEncoder(const std::string& encoder) {
  for (const VideoEncoderInfo& each : AssetWriter::videoEncoders()) {
    if (each.name == encoder || each.name.starts_with(encoder + ":")) return each.codec;
  }
  return std::nullopt;
}

}  // namespace

std::string codecName(const std::string& codec) {
  const auto* const known =
      std::find_if(kCodecs.begin(), kCodecs.end(), [&](const auto& each) { return codec == each.second; });
  return known == kCodecs.end() ? codec : known->first;
}

EncodingOptions::EncodingOptions(CLI::App& command, Copying copying) {
  command
      .add_option("--codec", codec_,
                  copying == Copying::possible
                      ? "h264, hevc, av1 or vp9, or copy to store pictures and sound as they are, without effects; by "
                        "default h264, in .webm vp9"
                      : "h264, hevc, av1 or vp9; by default h264, in .webm vp9")
      ->type_name("NAME");
  command
      .add_option("--encoder", encoder_, "The encoder, as `tavrel devices` names it; by default the first that opens")
      ->type_name("NAME");
  command
      .add_option("--bitrate", bitRate_,
                  "Bits a second of the pictures, as 800k or 2.5M; by default the quality decides")
      ->type_name("RATE");
  command
      .add_option("--quality", quality_, "Quality of the pictures from 0 (smallest file) to 1 (best); by default 0.75")
      ->type_name("Q");
  command
      .add_option("--keyframe", keyFrames_,
                  "The most frames from one keyframe to the next; by default 4 seconds, at least 250")
      ->type_name("FRAMES");
  command.add_option("--audio-bitrate", audioBitRate_, "Bits a second of the sound, as 128k")->type_name("RATE");
  command
      .add_option("--channels", channels_, "Channels of the sound: 1, 2 or 6, which is 5.1; by default the source's")
      ->type_name("N");
  isCopyable_ = copying == Copying::possible;
}

void EncodingOptions::check() const {
  const bool isKnown =
      codec_.empty() || (isCopyable_ && isCopy()) ||
      std::any_of(kCodecs.begin(), kCodecs.end(), [this](const auto& each) { return codec_ == each.first; });
  if (!isKnown) {
    throw UsageError(
        fmt::format("--codec {}: expected h264, hevc, av1{}", codec_, isCopyable_ ? ", vp9 or copy" : " or vp9"));
  }
  if (quality_ && !(*quality_ >= 0 && *quality_ <= 1)) {
    throw UsageError(fmt::format("--quality {}: expected 0 to 1", *quality_));
  }
  if (quality_ && !bitRate_.empty()) throw UsageError("--quality and --bitrate cannot both decide: give one of them");
  if (keyFrames_ && !(*keyFrames_ >= 1 && *keyFrames_ <= 1'000'000)) {
    throw UsageError(fmt::format("--keyframe {}: expected 1 to 1000000", *keyFrames_));
  }
  if (channels_ && *channels_ != 1 && *channels_ != 2 && *channels_ != 6) {
    throw UsageError(fmt::format("--channels {}: expected 1, 2 or 6", *channels_));
  }
  const bool encodes = !encoder_.empty() || !bitRate_.empty() || quality_ || keyFrames_ || changesSound();
  if (isCopy() && encodes) throw UsageError("--codec copy encodes nothing: leave out the options of encoders");
  (void)videoSettings();
  (void)audioSettings();
}

Dictionary EncodingOptions::videoSettings() const {
  Dictionary settings;
  for (const auto& [name, codec] : kCodecs) {
    if (codec_ == name) settings.emplace(kVideoCodecKey, std::string(codec));
  }
  if (!encoder_.empty()) {
    settings.emplace(kVideoEncoderKey, encoder_);
    if (codec_.empty()) {
      if (auto codec = codecOfEncoder(encoder_)) settings.emplace(kVideoCodecKey, std::move(*codec));
    }
  }
  if (!bitRate_.empty()) settings.emplace(kVideoAverageBitRateKey, parsedRate(bitRate_, "--bitrate", 1000, 2e9));
  if (quality_) settings.emplace(kVideoQualityKey, *quality_);
  if (keyFrames_) settings.emplace(kVideoMaxKeyFrameIntervalKey, *keyFrames_);
  return settings;
}

Dictionary EncodingOptions::audioSettings() const {
  Dictionary settings;
  if (channels_) settings.emplace(kAudioNumberOfChannelsKey, *channels_);
  if (!audioBitRate_.empty()) {
    settings.emplace(kAudioEncoderBitRateKey, parsedRate(audioBitRate_, "--audio-bitrate", 8000, 1e6));
  }
  return settings;
}

}  // namespace tavrel::tool
