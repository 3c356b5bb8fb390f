#pragma once

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::benchmarks {

/// GL without the graph: what somebody who knows the whole chain beforehand would write by hand. All of it belongs to
/// one thread with the context current. Nothing is deleted: the process ends soon.
class BareTexture {
 public:
  /// In the driver's fast byte order, linear and clamped.
  BareTexture(int width, int height, const void* bgra = nullptr);

  /// Replaces the pixels.
  void update(const void* bgra) const;

  GLuint name() const { return name_; }
  int width() const { return width_; }
  int height() const { return height_; }

 private:
  GLuint name_ = 0;
  int width_;
  int height_;
};

/// A texture to draw into.
class BareTarget {
 public:
  BareTarget(int width, int height);

  const BareTexture& texture() const { return texture_; }
  void bind() const;

 private:
  BareTexture texture_;
  GLuint framebuffer_ = 0;
};

/// One draw of the whole target: the same clear, uniforms and quad as a filter's, with everything looked up before.
class BarePass {
 public:
  BarePass(std::string_view vertexShader, std::string_view fragmentShader);
  /// The pass of a transform filter on frames of `size`.
  static BarePass transform(const AffineTransform& transform, Size size);
  /// The pass of a filter with `second` as its second input, and with 1 as its uniform `level`.
  static BarePass twoInputs(std::string_view fragmentShader, const char* level, const BareTexture& second);

  /// Textures for the samplers of these names, beside the input's "inputImageTexture"; the coordinates attribute
  /// "inputTextureCoordinate2" is set where the shader has it.
  void setSecondTexture(const BareTexture& texture, const char* sampler = "inputImageTexture2");
  /// Sets a uniform, once.
  void setFloat(const char* uniform, GLfloat value);
  void setVector2(const char* uniform, GLfloat x, GLfloat y);
  void setVector4(const char* uniform, GLfloat x, GLfloat y, GLfloat z, GLfloat w);
  void setMatrix(const char* uniform, const std::array<GLfloat, 16>& columns);
  void draw(const BareTexture& input, const BareTarget& target) const;
  /// Into a part of the target, without a clear.
  void drawRows(const BareTexture& input, const BareTarget& target, int first, int count) const;

 private:
  void drawQuad(const BareTexture& input) const;

  GLuint program_;
  GLint position_;
  GLint coordinates_;
  GLint secondCoordinates_;
  GLint inputTexture_;
  GLint secondSampler_ = -1;
  GLuint secondTexture_ = 0;
};

/// A thread of its own to make GL calls on would add a switch; these benchmarks run on the video-processing queue,
/// where this context takes the place of the graph's for the time of a block.
class BareContext {
 public:
  /// In the graph's sharegroup.
  BareContext();

  void use() const { context_->makeCurrent(); }
  static void useGraph() { TavrelGPUImageContext::useImageProcessingContext(); }

 private:
  std::shared_ptr<GLContext> context_;
};

}  // namespace tavrel::benchmarks
