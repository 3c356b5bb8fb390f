#pragma once

#include <cstdint>

namespace tavrel {

/// \file
/// Keys and values of the settings (`Dictionary`) of a movie track.

/// Text, required: one of the following codecs.
inline constexpr const char* kVideoCodecKey = "VideoCodec";
inline constexpr const char* kVideoCodecH264 = "avc1";
inline constexpr const char* kVideoCodecHEVC = "hvc1";
inline constexpr const char* kVideoCodecAV1 = "av01";
inline constexpr const char* kVideoCodecVP9 = "vp09";
/// Whole numbers, required: pixels, 1 to 16384.
inline constexpr const char* kVideoWidthKey = "VideoWidth";
inline constexpr const char* kVideoHeightKey = "VideoHeight";
/// Whole numbers, 1 to 65535: the shape of a pixel, as 64 and 45. Default: 1 and 1, square.
inline constexpr const char* kVideoPixelAspectRatioHorizontalSpacingKey = "VideoPixelAspectRatioHorizontalSpacing";
inline constexpr const char* kVideoPixelAspectRatioVerticalSpacingKey = "VideoPixelAspectRatioVerticalSpacing";
/// Text: how a picture of another shape gets its size, one of the following: stretched (the default), whole between
/// black bars, or so that it fills the frame and is cut off equally at two sides.
inline constexpr const char* kVideoScalingModeKey = "VideoScalingMode";
inline constexpr const char* kVideoScalingModeResize = "Resize";
inline constexpr const char* kVideoScalingModeResizeAspect = "ResizeAspect";
inline constexpr const char* kVideoScalingModeResizeAspectFill = "ResizeAspectFill";
/// Text: libavcodec's name of the encoder, followed by the device's node where there are several: "libx264",
/// "h264_vaapi:/dev/dri/renderD129". Default: the codec's first encoder that works.
inline constexpr const char* kVideoEncoderKey = "VideoEncoder";
/// Number, 1 to 1000: the frame rate to expect, which decides level, keyframe interval and rate control. Default: that
/// of the first two pictures.
inline constexpr const char* kVideoExpectedFrameRateKey = "VideoExpectedFrameRate";
/// Number: bits per second. Default: constant quality, whose rate follows the picture, capped at about 0.35 bits per
/// pixel for the default quality.
inline constexpr const char* kVideoAverageBitRateKey = "VideoAverageBitRate";
/// Number from 0 (smallest file) to 1 (best), used without a bit rate. Default: almost visually lossless.
inline constexpr const char* kVideoQualityKey = "VideoQuality";
/// Whole number: the most frames from one keyframe to the next. Default: four seconds of them, at least 250.
inline constexpr const char* kVideoMaxKeyFrameIntervalKey = "VideoMaxKeyFrameInterval";
/// Text: the encoder's name of a speed preset ("ultrafast", "medium"). Default: chosen by the mode.
inline constexpr const char* kVideoPresetKey = "VideoPreset";

/// Whole number, required: one of the two formats below.
inline constexpr const char* kAudioFormatIDKey = "AudioFormatID";
inline constexpr std::uint32_t kAudioFormatMPEG4AAC = 0x61616320;  // "aac "
inline constexpr std::uint32_t kAudioFormatOpus = 0x6F707573;      // "opus"
/// For reading only: linear PCM, which sound is decoded to.
inline constexpr std::uint32_t kAudioFormatLinearPCM = 0x6C70636D;  // "lpcm"
/// Integer: 1, 2 or 6 (5.1); default 1.
inline constexpr const char* kAudioNumberOfChannelsKey = "AudioNumberOfChannels";
/// Number: frames per second. Default: the audio session's. A rate that the codec lacks becomes the nearest it has.
inline constexpr const char* kAudioSampleRateKey = "AudioSampleRate";
/// Number: bits per second; default 64000 per channel.
inline constexpr const char* kAudioEncoderBitRateKey = "AudioEncoderBitRate";
/// Data: a channel layout record whose first four bytes, in native order, are one of the following tags. It must match
/// the number of channels.
inline constexpr const char* kAudioChannelLayoutKey = "AudioChannelLayout";
inline constexpr std::uint32_t kAudioChannelLayoutTagMono = 0x640001;
inline constexpr std::uint32_t kAudioChannelLayoutTagStereo = 0x650002;
inline constexpr std::uint32_t kAudioChannelLayoutTag5_1 = 0x790006;

/// For reading, text: what becomes of interlaced pictures, one of the following: one picture of both fields, which are
/// deinterlaced (the default), or both fields as they are, each on every other line.
inline constexpr const char* kVideoFieldModeKey = "VideoFieldMode";
inline constexpr const char* kVideoFieldModeDeinterlaceFields = "DeinterlaceFields";
inline constexpr const char* kVideoFieldModeBothFields = "BothFields";
/// For reading as 'BGRA', number: other than 0, pictures of 4:2:0 in 8 bits, whose colours need no more than a matrix
/// of BT.601, BT.709 or BT.2020, stay in planes ('420v', '420f'), with that matrix attached. Default: 0.
inline constexpr const char* kVideoAllowsPlanesKey = "VideoAllowsPlanes";

/// Attributes of pixel buffers. Integers.
inline constexpr const char* kPixelBufferPixelFormatTypeKey = "PixelFormatType";
inline constexpr const char* kPixelBufferWidthKey = "PixelBufferWidth";
inline constexpr const char* kPixelBufferHeightKey = "PixelBufferHeight";

}  // namespace tavrel
