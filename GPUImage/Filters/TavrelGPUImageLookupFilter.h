#pragma once

#include "GPUImage/Filters/TavrelGPUImageTwoInputFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

TAVREL_API extern const char* const kTavrelGPUImageLookupFragmentShaderString;
/// The same for premultiplied colours, which are divided by alpha first and multiplied by it again. Opaque pixels come
/// out the same.
TAVREL_API extern const char* const kTavrelGPUImagePremultipliedLookupFragmentShaderString;

/// Recolours the first input by a lookup table, the second input: 512×512 pixels in 8×8 tiles of 64×64. Tile n (row by
/// row from the top left) is for blue n/63; within a tile red grows to the right and green downwards, each from 0 to 1.
/// `TavrelLookupTable.h` converts other tables.
class TAVREL_API TavrelGPUImageLookupFilter : public TavrelGPUImageTwoInputFilter {
 public:
  TavrelGPUImageLookupFilter();
  /// With one of the two shaders above.
  explicit TavrelGPUImageLookupFilter(const char* fragmentShaderString);
  ~TavrelGPUImageLookupFilter() override;

  /// From 0 (the input unchanged) to 1 (the table's colours), the default.
  double intensity() const;
  void setIntensity(double newValue);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
