#pragma once

#include <GLES2/gl2.h>

#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// The source of a shader of this type as the driver of the current context gets it: behind `#version` and
/// `#extension`, lowp becomes highp and samplers give highp, since what lowp loses shows in colours of 8 bits. Where
/// fragment shaders have no highp (The OpenGL ES Shading Language 1.00.17, 4.5.4) mediump takes its place, also in
/// vertex shaders, since uniforms of both must agree.
TAVREL_API std::string shaderSource(GLenum type, std::string_view source);

}  // namespace tavrel
