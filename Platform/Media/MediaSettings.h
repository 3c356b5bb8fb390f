#pragma once

#include <cstdint>

namespace tavrel {

/// \file
/// Keys and values of the settings (`Dictionary`) of a movie track.

/// Text, required: one of the following codecs.
inline constexpr const char* kVideoCodecKey = "VideoCodec";
inline constexpr const char* kVideoCodecH264 = "avc1";
inline constexpr const char* kVideoCodecHEVC = "hvc1";
/// Whole numbers, required: pixels, 1 to 16384.
inline constexpr const char* kVideoWidthKey = "VideoWidth";
inline constexpr const char* kVideoHeightKey = "VideoHeight";
/// Number: bits a second. Without it the quality is constant and the rate follows the picture.
inline constexpr const char* kVideoAverageBitRateKey = "VideoAverageBitRate";
/// Number from 0 (smallest file) to 1 (best), used without a bit rate. Default: almost visually lossless.
inline constexpr const char* kVideoQualityKey = "VideoQuality";
/// Whole number: the most frames from one keyframe to the next.
inline constexpr const char* kVideoMaxKeyFrameIntervalKey = "VideoMaxKeyFrameInterval";
/// Text: the encoder's name of a speed preset ("ultrafast", "medium"). Default: chosen by the mode.
inline constexpr const char* kVideoPresetKey = "VideoPreset";

/// Whole number, required: the format below.
inline constexpr const char* kAudioFormatIDKey = "AudioFormatID";
inline constexpr std::uint32_t kAudioFormatMPEG4AAC = 0x61616320;  // "aac "
/// For reading only: linear PCM, which sound is decoded to.
inline constexpr std::uint32_t kAudioFormatLinearPCM = 0x6C70636D;  // "lpcm"
/// Integer: 1 or 2; default 1.
inline constexpr const char* kAudioNumberOfChannelsKey = "AudioNumberOfChannels";
/// Number: frames a second; the audio session's when absent. A rate that AAC does not have becomes the nearest it has.
inline constexpr const char* kAudioSampleRateKey = "AudioSampleRate";
/// Number: bits per second; default 64000 per channel.
inline constexpr const char* kAudioEncoderBitRateKey = "AudioEncoderBitRate";
/// Data: a channel layout record whose first four bytes, in native order, are one of the following tags. It must match
/// the number of channels.
inline constexpr const char* kAudioChannelLayoutKey = "AudioChannelLayout";
inline constexpr std::uint32_t kAudioChannelLayoutTagMono = 0x640001;
inline constexpr std::uint32_t kAudioChannelLayoutTagStereo = 0x650002;

/// Attributes of pixel buffers. Integers.
inline constexpr const char* kPixelBufferPixelFormatTypeKey = "PixelFormatType";
inline constexpr const char* kPixelBufferWidthKey = "PixelBufferWidth";
inline constexpr const char* kPixelBufferHeightKey = "PixelBufferHeight";

}  // namespace tavrel
