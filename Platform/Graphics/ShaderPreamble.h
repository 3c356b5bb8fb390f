#pragma once

#include <GLES2/gl2.h>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// What the source of a shader of this type is preceded by, for the driver of the current context. Empty, but where
/// fragment shaders have no highp (The OpenGL ES Shading Language 1.00.17, 4.5.4): there mediump takes its place, also
/// in vertex shaders, since uniforms of both must agree.
TAVREL_API const char* shaderPreamble(GLenum type);

}  // namespace tavrel
