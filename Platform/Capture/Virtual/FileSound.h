#pragma once

#include <filesystem>
#include <memory>

#include "Platform/Capture/Virtual/VirtualSound.h"

namespace tavrel {

/// The sound of a file (WAV or whatever else can be decoded), mixed to one channel and looped.
class TAVREL_API FileSound : public VirtualSound {
 public:
  /// Fails with `noSuchFile`, and with `badSound` when it is no sound file or holds no samples.
  static Expected<std::shared_ptr<FileSound>> create(const std::filesystem::path& path, int sampleRate);
  ~FileSound() override;

  Expected<void> render(std::span<float> samples, std::uint64_t first) override;

 private:
  struct Implementation;
  explicit FileSound(std::unique_ptr<Implementation> implementation);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
