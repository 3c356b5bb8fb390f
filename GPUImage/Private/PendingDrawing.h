#pragma once

#include <GLES2/gl2.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "GPUImage/Private/ShaderStage.h"
#include "GPUImage/Private/StageProgram.h"
#include "GPUImage/TavrelGPUImageFramebufferLease.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

using UniformSetter = std::function<void(GLint location)>;
/// What sets a program's uniforms, by their locations in it.
using UniformSetters = std::map<GLint, UniformSetter>;

/// What a framebuffer shows that is not drawn yet: a texture, pixel by pixel, through the stages of several filters.
///
/// Maps go from places in what is drawn to places in a texture, both in 0…1. On the video-processing queue.
class PendingDrawing {
 public:
  struct Stage {
    std::shared_ptr<const ShaderStage> shader;
    std::shared_ptr<const UniformSetters> uniforms;
    /// Where the setters of the shader's uniforms are, in its order.
    std::shared_ptr<const std::vector<GLint>> locations;
    AffineTransform place = {};  ///< in the stage's input
    TavrelGPUImageFramebufferLease second = {};
    AffineTransform secondPlace = {};
    bool secondMeetsPixels = false;
    /// Of the shader, in its order.
    std::shared_ptr<const std::vector<std::shared_ptr<TavrelGPUImageFramebuffer>>> tables = nullptr;
    /// In pixels of what is drawn; outside, the stage changes nothing.
    std::optional<Rect> area = std::nullopt;
  };

  /// False with the environment variable `TAVREL_FUSE=0`: each filter draws by itself.
  static bool isOn();
  /// The map of a whole frame on which the coordinates of the corners bottom-left, bottom-right and top-left are these.
  static AffineTransform mapOf(const GLfloat* corners);
  /// Whether each pixel of a frame of this size shows exactly one of `texture`'s, and no two the same.
  static bool meetsPixels(const AffineTransform& map, Size size, Size texture);

  /// Whether sampling beside it gives its outermost pixels.
  static bool endsAtEdges(const TavrelGPUImageFramebuffer& framebuffer);

  /// The whole of `source`.
  explicit PendingDrawing(TavrelGPUImageFramebufferLease source);

  /// Whether it is no more than its source.
  bool isPlain() const;
  bool hasRoomFor(const ShaderStage& stage) const;
  /// Shows the part of what it was that `map` names, at `size`; they meet pixels.
  void turn(const AffineTransform& map, Size size);
  void add(Stage stage);
  Size size() const { return size_; }
  /// Draws all of it into the framebuffer and viewport in use.
  void draw() const;
  /// Those that `draw` would have to make.
  std::vector<PrecompiledProgram> unknownPrograms() const;

 private:
  /// Rectangles in which the same stages draw.
  struct Part {
    std::uint32_t areas = 0;
    std::vector<Rect> rectangles = {};
  };
  /// The stages that draw in a part, and the places that they need.
  struct Layout {
    std::vector<const Stage*> stages;
    std::vector<StageProgram::Stage> described;
    std::vector<AffineTransform> places;
  };

  std::vector<Part> parts() const;
  Layout layoutOf(std::uint32_t areas) const;
  void drawPart(const Part& part) const;

  TavrelGPUImageFramebufferLease source_;
  AffineTransform sourcePlace_;
  std::vector<Stage> stages_;
  Size size_;
};

}  // namespace tavrel
