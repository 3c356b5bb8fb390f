#pragma once

#include <cstdint>
#include <optional>

#include "Platform/Capture/Virtual/Private/BgraCanvas.h"

namespace tavrel {

/// The machine-readable parts of the drawn scene; `SyntheticScene` says where they lie.
void drawFrameCounter(const BgraCanvas& canvas, std::uint32_t frameNumber);
std::optional<std::uint32_t> readFrameCounter(const BgraCanvas& canvas);

void drawFlash(const BgraCanvas& canvas, bool lit);
bool readFlash(const BgraCanvas& canvas);
/// Whether the flash is lit in the frame at `sceneTime` seconds.
bool flashIsLit(double sceneTime, double frameDuration);

/// "MM:SS.mmm", left out where it does not fit.
void drawClock(const BgraCanvas& canvas, double sceneTime);

}  // namespace tavrel
