#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "Platform/Capture/Virtual/VirtualScene.h"

namespace tavrel {

/// A drawn scene that is the same for the same frame, on every run: a smooth background, a skin-toned, finely textured
/// oval for smoothing filters, a disc that circles once every four seconds, and three things that the camera's controls
/// leave alone:
/// - the frame counter: 32 black or white cells at the top edge, most significant bit first: the frame number's low 24
/// bits,
///   then an 8-bit check sum of them. One row of 32 cells where the picture is at least 256 wide, 2 rows of 16 from
///   128, else 4 rows of 8;
/// - the clock: "MM:SS.mmm" of the scene time, below the counter, where it fits;
/// - the flash: the patch at the bottom right corner, a sixth of the width and of the height (at least 4 pixels), white
/// for
///   0.1 s from the frame nearest to each whole second (at least one frame), black otherwise.
///
/// The background and the oval are kept drawn, for the latest size and controls.
class TAVREL_API SyntheticScene : public VirtualScene {
 public:
  enum class Position { front, back };

  explicit SyntheticScene(Position position);
  ~SyntheticScene() override;

  Expected<void> render(PixelBuffer& buffer, const VirtualFrame& frame) override;

  /// The low 24 bits of the frame number that a BGRA picture shows; nothing when it shows none. Survives lossy coding
  /// and changes of brightness and colour, not rotation. Rows are `bytesPerRow` apart.
  static std::optional<std::uint32_t> decodeFrameCounter(const std::uint8_t* bytes, std::size_t bytesPerRow, int width,
                                                         int height);
  /// Whether the flash of a BGRA picture is lit.
  static bool isFlash(const std::uint8_t* bytes, std::size_t bytesPerRow, int width, int height);

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
