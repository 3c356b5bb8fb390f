#pragma once

#include <cstdint>

namespace tavrel {

/// Position of the alpha component in a 32-bit word, and whether colours are premultiplied.
enum class AlphaInfo : std::uint32_t {
  none = 0,
  premultipliedLast = 1,
  premultipliedFirst = 2,
  last = 3,
  first = 4,
  noneSkipLast = 5,
  noneSkipFirst = 6,
  only = 7,
};

// A bitmap info is a byte order, an alpha info and, for floating-point components, the float flag, or'ed together. The
// default order is big-endian for 32-bit pixels: components are in memory in the order that the alpha info names.
inline constexpr std::uint32_t kBitmapAlphaInfoMask = 0x1F;
inline constexpr std::uint32_t kBitmapFloatComponents = 0x100;
inline constexpr std::uint32_t kBitmapByteOrderMask = 0x7000;
inline constexpr std::uint32_t kBitmapByteOrderDefault = 0x0000;
inline constexpr std::uint32_t kBitmapByteOrder16Little = 0x1000;
inline constexpr std::uint32_t kBitmapByteOrder32Little = 0x2000;
inline constexpr std::uint32_t kBitmapByteOrder16Big = 0x3000;
inline constexpr std::uint32_t kBitmapByteOrder32Big = 0x4000;

constexpr std::uint32_t bitmapInfo(std::uint32_t byteOrder, AlphaInfo alpha) {
  return byteOrder | static_cast<std::uint32_t>(alpha);
}

/// B, G, R, A bytes in memory, premultiplied.
inline constexpr std::uint32_t kBitmapPremultipliedBGRA =
    bitmapInfo(kBitmapByteOrder32Little, AlphaInfo::premultipliedFirst);
/// B, G, R and an unused byte.
inline constexpr std::uint32_t kBitmapOpaqueBGRX = bitmapInfo(kBitmapByteOrder32Little, AlphaInfo::noneSkipFirst);
/// R, G, B, A of 16 bits each in the order of little-endian machines, premultiplied.
inline constexpr std::uint32_t kBitmapPremultipliedRGBA16 =
    bitmapInfo(kBitmapByteOrder16Little, AlphaInfo::premultipliedLast);
/// The same with unused alpha.
inline constexpr std::uint32_t kBitmapOpaqueRGBX16 = bitmapInfo(kBitmapByteOrder16Little, AlphaInfo::noneSkipLast);

}  // namespace tavrel
