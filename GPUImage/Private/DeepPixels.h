#ifndef TAVREL_GPUIMAGE_PRIVATE_DEEPPIXELS_H_
#define TAVREL_GPUIMAGE_PRIVATE_DEEPPIXELS_H_

#include <GLES2/gl2.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// `count` components of 16 bits as GL_FLOAT, from 0 to 1, for drivers that store deep textures as such.
std::vector<float> floatsOfWords(const std::uint8_t* words, std::size_t count);

/// The bound framebuffer's RGBA components as words of 16 bits. `type` is that of its texture: GL_UNSIGNED_SHORT, or
/// GL_FLOAT, of which what lies outside of 0 to 1 is clamped.
Data readDeepPixels(Size size, GLenum type);

}  // namespace tavrel

#endif  // TAVREL_GPUIMAGE_PRIVATE_DEEPPIXELS_H_
