#pragma once

#include <GLES2/gl2.h>

#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/UI/Color.h"
#include "Platform/UI/Layer.h"

namespace tavrel {

class DrawableLayer;
class GLDrawableFrame;

/// Draws a layer tree with one GL context, into the bound framebuffer. Every member needs that context current.
class LayerRenderer {
 public:
  /// What the picture is to be.
  struct Target {
    int width = 0;   ///< in pixels
    int height = 0;  ///< in pixels
    double scale = 1;
    bool topRowFirst = false;  ///< as memory wants it; a window wants the bottom row first
    double time = 0;           ///< on `Layer::currentTime`'s clock
    Color background;
  };

  static Expected<std::unique_ptr<LayerRenderer>> create();
  LayerRenderer(const LayerRenderer&) = delete;
  LayerRenderer& operator=(const LayerRenderer&) = delete;
  ~LayerRenderer();

  /// The bounds of `root` are laid onto the target's top left corner.
  void draw(const Layer& root, const Target& target);

 private:
  struct Program {
    GLuint name = 0;
    GLint toClip = -1;
    GLint rectangle = -1;
    GLint halfSize = -1;
    GLint shape = -1;
    GLint color = -1;
    GLint contentsRectangle = -1;
    GLint contents = -1;
    GLint opacity = -1;
  };
  struct Placed {
    AffineTransform toClip;  ///< from points about the layer's centre
    double pixelsPerPoint;
    double opacity;
    Size size;
    double cornerRadius;
  };

  LayerRenderer() = default;
  static Expected<Program> link(const char* fragmentShader);
  void drawLayer(const Layer& layer, const AffineTransform& superToClip, double superPixelsPerPoint,
                 double superOpacity);
  /// A rounded rectangle, or the ring of `thickness` inside its edge.
  void drawShape(const Placed& placed, const Color& color, double thickness);
  void drawContents(const Placed& placed, const DrawableLayer& layer);
  void drawQuad(const Program& program, const Placed& placed, const Rect& rectangle);

  Program shapeProgram_;
  Program contentsProgram_;
  double time_ = 0;
};

}  // namespace tavrel
