#pragma once

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Filters/TavrelLookupTable.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Recolours by a table of any size, with the table's own resolution: curves linearly, lattices tetrahedrally, in
/// 32-bit floating point (16-bit above 65 steps an edge). Colours are divided by alpha first and multiplied by it
/// again.
class TAVREL_API TavrelGPUImageColorTableFilter : public TavrelGPUImageFilter {
 public:
  /// `isSupported` must be true.
  explicit TavrelGPUImageColorTableFilter(const std::shared_ptr<const ColorTable>& table);
  ~TavrelGPUImageColorTableFilter() override;

  /// Whether the driver has floating-point textures (OpenGL ES 3). Any thread.
  static bool isSupported();

  /// From 0 (the input unchanged) to 1 (the table's colours), the default.
  double intensity() const;
  void setIntensity(double newValue);

 protected:
  void bindInputs(const GLfloat* textureCoordinates) override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
