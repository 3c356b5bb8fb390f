#include "GPUImage/Private/DeepPixels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tavrel {
namespace {

constexpr float kWhite = 65535;

}  // namespace

std::vector<float> floatsOfWords(const std::uint8_t* words, std::size_t count) {
  std::vector<float> components(count);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint16_t word = 0;
    std::memcpy(&word, words + i * sizeof word, sizeof word);
    components[i] = static_cast<float>(word) / kWhite;
  }
  return components;
}

Data readDeepPixels(Size size, GLenum type) {
  const auto width = static_cast<GLsizei>(size.width);
  const auto height = static_cast<GLsizei>(size.height);
  const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
  Data words(count * sizeof(std::uint16_t));
  if (type == GL_UNSIGNED_SHORT) {
    glReadPixels(0, 0, width, height, GL_RGBA, type, words.data());
    return words;
  }
  std::vector<float> components(count);
  glReadPixels(0, 0, width, height, GL_RGBA, GL_FLOAT, components.data());
  for (std::size_t i = 0; i < count; ++i) {
    const auto word = static_cast<std::uint16_t>(std::lround(std::clamp(components[i], 0.0F, 1.0F) * kWhite));
    std::memcpy(words.data() + i * sizeof word, &word, sizeof word);
  }
  return words;
}

}  // namespace tavrel
