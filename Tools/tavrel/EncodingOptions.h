#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// What `--codec` calls a value of `kVideoCodecKey`.
std::string codecName(const std::string& codec);

/// `--codec`, `--encoder`, `--bitrate`, `--quality`, `--keyframe`, `--audio-bitrate` and `--channels` of a command.
class EncodingOptions {
 public:
  enum class Copying { impossible, possible };

  EncodingOptions(CLI::App& command, Copying copying);

  /// Throws UsageError for invalid values.
  void check() const;
  /// Whether the tracks are to be stored as they are, `--codec copy`.
  bool isCopy() const { return codec_ == "copy"; }
  /// Whether the sound is to be encoded in a way of its own.
  bool changesSound() const { return !audioBitRate_.empty() || channels_; }
  /// What was asked for, as settings of a track; what was not is absent.
  Dictionary videoSettings() const;
  Dictionary audioSettings() const;

 private:
  bool isCopyable_ = false;
  std::string codec_;
  std::string encoder_;
  std::string bitRate_;
  std::optional<double> quality_;
  std::optional<std::int64_t> keyFrames_;
  std::string audioBitRate_;
  std::optional<std::int64_t> channels_;
};

}  // namespace tavrel::tool
