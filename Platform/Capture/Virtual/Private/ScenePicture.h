#pragma once

#include <filesystem>

#include "Platform/Capture/Virtual/Private/BgraCanvas.h"
#include "Platform/Foundation/Error.h"

namespace tavrel {

/// The first picture of a picture file, upright and opaque.
Expected<BgraPicture> loadScenePicture(const std::filesystem::path& path);

}  // namespace tavrel
