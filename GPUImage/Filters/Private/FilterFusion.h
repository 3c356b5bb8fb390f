#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "GPUImage/Private/PendingDrawing.h"

namespace tavrel {

class TavrelGPUImageFilter;

/// What a filter must know of itself to hand on what it means instead of drawing it. On the video-processing queue.
class FilterFusion {
 public:
  /// The second input of a filter that has one.
  struct SecondInput {
    const TavrelGPUImageFramebufferLease* framebuffer = nullptr;
    const GLfloat* corners = nullptr;
    bool isScaled = false;    ///< it is brought to the size of the first one
    bool keepsFirst = false;  ///< the first input serves for further frames
  };

  /// Objects of exactly this class draw as the library's own filters do: no subclass changes how.
  void setType(const std::type_info& type) { type_ = &type; }
  /// The shaders in use from now on. `textForStages`, if any, computes the same as the fragment shader.
  void setShaders(std::string_view vertexShader, std::string_view fragmentShader);
  void setTextForStages(std::string_view fragmentShader);
  /// The texture behind a sampler of the shader other than the inputs'.
  void setTable(std::string_view name, std::shared_ptr<TavrelGPUImageFramebuffer> texture);
  void setUniform(GLint location, UniformSetter setter);
  /// A uniform is set by somebody in a way of his own.
  void noteForeignUniform(GLint location) { foreignUniforms_.insert(location); }
  bool hasOwnUniforms() const { return foreignUniforms_.empty(); }
  /// Another object after each change of uniforms.
  const std::shared_ptr<const UniformSetters>& uniforms() const { return uniforms_; }

  /// Whether nothing but the library's own code has a part in what it draws.
  bool knows(const TavrelGPUImageFilter& self) const;
  /// Whether a framebuffer that is not drawn yet can be the first input.
  bool accepts(const TavrelGPUImageFilter& self);
  /// What `self` would draw now of `input`, the whole of whose frame has these coordinates at its corners; nothing
  /// where it must draw itself.
  std::optional<PendingDrawing> drawingOf(const TavrelGPUImageFilter& self, const TavrelGPUImageFramebufferLease& input,
                                          const GLfloat* corners, const SecondInput& second);
  /// Whether the vertex shader passes positions on as they are.
  bool keepsVertices() const { return keepsVertices_; }

 private:
  bool findStage(const TavrelGPUImageFilter& self);

  const std::type_info* type_ = nullptr;
  std::string fragmentShader_;
  std::string textForStages_;
  bool keepsVertices_ = false;
  bool isAnalysed_ = false;
  std::shared_ptr<const ShaderStage> stage_;
  bool copies_ = false;
  bool laysOver_ = false;  // where its second input is transparent, it changes nothing
  std::shared_ptr<const std::vector<GLint>> locations_;
  std::map<std::string, std::shared_ptr<TavrelGPUImageFramebuffer>, std::less<>> tables_;
  std::shared_ptr<const std::vector<std::shared_ptr<TavrelGPUImageFramebuffer>>> stageTables_;
  std::shared_ptr<const UniformSetters> uniforms_ = std::make_shared<UniformSetters>();
  std::set<GLint> foreignUniforms_;
};

}  // namespace tavrel
