#pragma once

#include <initializer_list>
#include <memory>
#include <string_view>

namespace tavrel {

class TavrelGLProgram;
class TavrelGPUImageContext;

/// The context's program of these two sources, linked. On its first use `attributes` are added to it, in this order;
/// sources that do not compile and link stop the process, with GL's three logs on the console. On the context's queue.
std::shared_ptr<TavrelGLProgram> linkedProgram(TavrelGPUImageContext& context, std::string_view vertexShader,
                                               std::string_view fragmentShader,
                                               std::initializer_list<std::string_view> attributes);

}  // namespace tavrel
