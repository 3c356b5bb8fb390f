#pragma once

#include <GLES2/gl2.h>
#include <imgui.h>

#include <memory>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// A texture of the window's context.
class WindowTexture {
 public:
  /// R, G, B, A bytes, top row first. The context must be current, as for all members.
  WindowTexture(int width, int height, const void* pixels);
  WindowTexture(const WindowTexture&) = delete;
  WindowTexture& operator=(const WindowTexture&) = delete;
  ~WindowTexture();

  int width() const { return width_; }
  int height() const { return height_; }
  ImTextureID identity() const;

 private:
  const int width_;
  const int height_;
  GLuint name_ = 0;
};

/// Draws the camera's picture and the panels with OpenGL ES 2.0. Main thread, with the window's context current.
class PanelRenderer {
 public:
  /// Fails if the driver refuses the program.
  static Expected<std::unique_ptr<PanelRenderer>> create();
  PanelRenderer(const PanelRenderer&) = delete;
  PanelRenderer& operator=(const PanelRenderer&) = delete;
  ~PanelRenderer();

  /// Fills a window of `size` pixels with the colour of the panels, which is cheaper than drawing theirs, and `picture`
  /// with that around a picture.
  void begin(Size size, const Rect& picture);
  /// Draws a texture whose bottom row comes first, opaque, over `rectangle` (pixels from the top left).
  void drawPicture(GLuint texture, const Rect& rectangle, bool mirrored);
  void drawPanels(const ImDrawData& panels);

 private:
  PanelRenderer() = default;
  void setUp(const ImDrawData& panels) const;
  void bindBuffers() const;

  Size size_;
  GLuint program_ = 0;
  GLint projection_ = -1;
  GLuint vertices_ = 0;
  GLuint indices_ = 0;
};

}  // namespace tavrel::studio
