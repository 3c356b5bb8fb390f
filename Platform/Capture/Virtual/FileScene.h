#pragma once

#include <filesystem>
#include <memory>

#include "Platform/Capture/Virtual/VirtualScene.h"

namespace tavrel {

/// A movie or a picture as the scene: it fills the frame, aspect kept, centre cropped, upright as the file says. A
/// movie runs at its own frame times and starts again at its end; frames are decoded when they are due.
class TAVREL_API FileScene : public VirtualScene {
 public:
  /// Fails with `noSuchFile`, and with `badScene` when it is neither a picture nor a movie with at least one frame.
  static Expected<std::shared_ptr<FileScene>> create(const std::filesystem::path& path);
  ~FileScene() override;

  Expected<void> render(PixelBuffer& buffer, const VirtualFrame& frame) override;

 private:
  struct Implementation;
  explicit FileScene(std::unique_ptr<Implementation> implementation);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
