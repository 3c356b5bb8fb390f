#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavrel::test {

/// A stream of H.264 as another program (ffmpeg) encodes it, picture by picture. Each picture is of one gray; every
/// fifth is a key picture.
class H264Pictures {
 public:
  /// Throws when there is no such program.
  H264Pictures(int width, int height, int count);

  const std::vector<std::uint8_t>& at(std::size_t number) const { return pictures_.at(number); }
  /// What each component of such a picture is.
  static int grayOf(std::size_t number) { return static_cast<int>((24 + number * 16) * 255 / 219); }

 private:
  std::vector<std::vector<std::uint8_t>> pictures_;
};

}  // namespace tavrel::test
