#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "Platform/Capture/Virtual/VirtualScene.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// A drawn scene, identical on every run: a portrait that shows what filters do (skin with freckles, spots and pores,
/// eyes, hair, a wall of bricks, a poster with text and thin lines), a ball that circles once every four seconds, and
/// three marks that the camera's controls leave alone:
/// - the frame counter: 32 black or white cells at the top edge, most significant bit first: the low 24 bits of the
///   frame number, then an 8-bit checksum of them. One row of 32 cells from a width of 256, two rows of 16 from 128,
///   else four rows of 8;
/// - the clock: the scene time as "MM:SS.mmm" below the counter, where it fits;
/// - the flash: a patch in the bottom right corner, a sixth of the width and height (at least 4 pixels), white for
///   0.1 s (at least one frame) from the frame nearest to each whole second, otherwise black.
///
/// The portrait is drawn once for a size, in any scene, and cached as the latest controls show it.
class TAVREL_API SyntheticScene : public VirtualScene {
 public:
  enum class Position { front, back };

  explicit SyntheticScene(Position position);
  ~SyntheticScene() override;

  void prepare(int width, int height) override;
  Expected<void> render(PixelBuffer& buffer, const VirtualFrame& frame) override;

  /// Reads the frame counter (24 bits) of a BGRA picture; nothing if it shows none. Works after lossy coding and
  /// changes of brightness and colour, but not after rotation.
  static std::optional<std::uint32_t> decodeFrameCounter(const std::uint8_t* bytes, std::size_t bytesPerRow, int width,
                                                         int height);
  /// Whether the flash is lit in a BGRA picture.
  static bool isFlash(const std::uint8_t* bytes, std::size_t bytesPerRow, int width, int height);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
