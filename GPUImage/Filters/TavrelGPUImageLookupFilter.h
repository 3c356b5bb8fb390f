#pragma once

#include "GPUImage/Filters/TavrelGPUImageTwoInputFilter.h"

namespace tavrel {

TAVREL_API extern const char* const kTavrelGPUImageLookupFragmentShaderString;

/// Recolours the first input by a table, the second input: a picture of 512×512 pixels, 8×8 tiles of 64×64. Tile n
/// (row by row from the top left) is for blue n/63; in a tile red grows to the right and green downwards, each from 0
/// to 1 in 64 steps. `TavrelLookupTable.h` makes such pictures from other forms of tables.
class TAVREL_API TavrelGPUImageLookupFilter : public TavrelGPUImageTwoInputFilter {
 public:
  TavrelGPUImageLookupFilter();
  ~TavrelGPUImageLookupFilter() override;

  /// From 0 (the input as it is) to 1 (the table's colours), which is the default.
  double intensity() const;
  void setIntensity(double newValue);

 private:
  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
