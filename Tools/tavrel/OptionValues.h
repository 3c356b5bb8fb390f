#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel::tool {

/// Values of the effects' options. All functions throw UsageError, which names `option`.

/// The finite numbers in "1,2,3", `fewest` to `most` of them; `expected` describes them in the error.
std::vector<double> parseNumbers(std::string_view text, std::size_t fewest, std::size_t most, const char* option,
                                 const char* expected);
void checkUnitRange(const std::vector<double>& numbers, const char* option, const std::string& value);

/// A time: seconds, or minutes and seconds, or hours too, as "1:02:03.5".
MediaTime parseTime(std::string_view text, const char* option);

/// FILE@X,Y,W,H[,DEGREES]
struct Placement {
  std::string file;
  Rect rectangle;
  double radians = 0;
};
Placement parsePlacement(const std::string& value, const char* option);

}  // namespace tavrel::tool
