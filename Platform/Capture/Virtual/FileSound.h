#pragma once

#include <filesystem>
#include <memory>

#include "Platform/Capture/Virtual/VirtualSound.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// The audio of a file (WAV or any other decodable format), in one channel or two, and looped.
class TAVREL_API FileSound : public VirtualSound {
 public:
  /// Fails with `noSuchFile`, and with `badSound` if the file has no decodable audio or no samples.
  static Expected<std::shared_ptr<FileSound>> create(const std::filesystem::path& path, int sampleRate);
  ~FileSound() override;

  int channelCount() const override;
  Expected<void> render(std::span<float> samples, std::uint64_t first) override;

 private:
  struct Implementation;
  explicit FileSound(std::unique_ptr<Implementation> implementation);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
