#include "Platform/Capture/Virtual/Private/ScenePicture.h"
namespace tavrel {
Expected<BgraPicture> loadScenePicture(const std::filesystem::path&) { return failure("x", 1, "x"); }
}  // namespace tavrel
