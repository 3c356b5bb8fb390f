#pragma once

#include <array>
#include <memory>
#include <vector>

#include "CameraScene.h"
#include "Support/BareGL.h"

namespace tavrel::benchmarks {

/// What the camera draws, by hand; on the video-processing queue.
class BareSide {
 public:
  explicit BareSide(const Layout& layout);

  /// Uploads the frame and draws everything.
  void frame(const SampleBuffer& sample);

  /// Where `Receiver` reads the center.
  std::array<std::uint8_t, 4> encodedPixel() const;

 private:
  struct Step {
    BarePass pass;
    const BareTexture* input;
  };

  const int width_;
  const int height_;
  const Pixels animation_ = animationPixels();
  BareContext context_;
  std::unique_ptr<BareTexture> frame_, table_, still_, animated_;
  std::vector<BareTarget> targets_;
  std::vector<Step> steps_;
};

}  // namespace tavrel::benchmarks
