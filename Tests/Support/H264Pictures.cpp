#include "Support/H264Pictures.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "Support/CapturePeers.h"

namespace tavrel::test {

H264Pictures::H264Pictures(int width, int height, int count) {
  const auto path = std::filesystem::temp_directory_path() / ("tavrel-" + std::to_string(getpid()) + ".h264");
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  // Luma 40, 56, 72 …; each picture begins with a delimiter.
  if (!runCommand("ffmpeg -y -v error -f lavfi -i nullsrc=s=" + size +
                  ":r=10,format=yuv420p,geq=lum=40+16*N:cb=128:cr=128 -frames:v " + std::to_string(count) +
                  " -c:v libx264 -preset ultrafast -tune zerolatency -g 5 -bf 0 -x264-params aud=1 -f h264 " +
                  path.string())) {
    throw std::runtime_error("ffmpeg has made no H.264");
  }
  std::ifstream file(path, std::ios::binary);
  const std::vector<std::uint8_t> stream{std::istreambuf_iterator<char>(file), {}};
  std::filesystem::remove(path);
  constexpr std::array<std::uint8_t, 5> kDelimiter = {0, 0, 0, 1, 9};
  const auto next = [&](auto from) { return std::search(from, stream.end(), kDelimiter.begin(), kDelimiter.end()); };
  for (auto begin = next(stream.begin()); begin != stream.end();) {
    const auto end = next(begin + 1);
    pictures_.emplace_back(begin, end);
    begin = end;
  }
}

}  // namespace tavrel::test
