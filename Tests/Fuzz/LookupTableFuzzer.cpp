#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "GPUImage/Filters/Private/ColorTable.h"
#include "GPUImage/Filters/TavrelLookupTable.h"

namespace {

/// Colours within, at the edges of and outside the domain.
constexpr float kLevels[] = {-1e30F, 0, 0.3F, 1, 7, HUGE_VALF};

void readText(std::string_view text) {
  const auto table = tavrel::parseColorTable(text);
  if (!table) return;
  for (const float red : kLevels) {
    for (const float blue : kLevels) (void)table->at({red, 0.5F, blue});
  }
}

void readFile(const std::uint8_t* bytes, std::size_t size) {
  const int file = memfd_create("table", MFD_CLOEXEC);
  if (file < 0 || write(file, bytes, size) != static_cast<ssize_t>(size)) __builtin_trap();
  const auto image = tavrel::TavrelLookupImageFromFile("/proc/self/fd/" + std::to_string(file));
  if (image && ((*image)->width() != 512 || (*image)->height() != 512)) __builtin_trap();
  close(file);
}

}  // namespace

/// A ".cube", ".3dl" or ".csp" text, or a picture: anything that does not begin as text does.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (size > 3 && (bytes[0] >= 0x80 || bytes[0] == 'G')) {
    readFile(bytes, size);
  } else {
    readText({reinterpret_cast<const char*>(bytes), size});
  }
  return 0;
}
