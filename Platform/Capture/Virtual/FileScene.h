#pragma once

#include <filesystem>
#include <memory>

#include "Platform/Capture/Virtual/VirtualScene.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// A movie or picture as a scene: upright as the file says, scaled to fill the frame and cropped about the centre. A
/// movie plays at its own frame times and loops; frames are decoded when due.
class TAVREL_API FileScene : public VirtualScene {
 public:
  /// Fails with `noSuchFile`, and with `badScene` if the file is neither a picture nor a movie with at least one frame.
  static Expected<std::shared_ptr<FileScene>> create(const std::filesystem::path& path);
  ~FileScene() override;

  Expected<void> render(PixelBuffer& buffer, const VirtualFrame& frame) override;

 private:
  struct Implementation;
  explicit FileScene(std::unique_ptr<Implementation> implementation);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
