#include "UsbCameraDescriptors.h"

#include <string_view>

#include "UsbCamera.h"

namespace tavrel::test {

void append(Data& data, std::initializer_list<int> bytes) {
  for (const int byte : bytes) data.push_back(static_cast<std::uint8_t>(byte));
}

void appendLittle(Data& data, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) data.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

Data deviceDescriptor() {
  // USB 2.0, functions of their own, 64 bytes at endpoint 0; numbers for tests; three texts, one configuration.
  return {18, 1, 0, 2, 0xef, 2, 1, 64, 0x09, 0x12, 1, 0, 0, 1, 1, 2, 3, 1};
}

/// A format, its one size and rate, and its colours (BT.601).
static void appendFormat(Data& data, int number, bool isJpeg) {
  if (isJpeg) {
    append(data, {11, 0x24, 6, number, 1, 1, 1, 0, 0, 0, 0});
  } else {
    append(data, {27, 0x24, 4, number, 1, 'Y', 'U', 'Y', '2', 0, 0, 0x10, 0, 0x80, 0, 0});
    append(data, {0xaa, 0, 0x38, 0x9b, 0x71, 16, 1, 0, 0, 0, 0});
  }
  const int rate = isJpeg ? UsbCamera::kJpegRate : UsbCamera::kYuyvRate;
  const std::uint64_t bytes = std::uint64_t{UsbCamera::kWidth} * UsbCamera::kHeight * 2;
  append(data, {30, 0x24, isJpeg ? 7 : 5, 1, 0});
  appendLittle(data, UsbCamera::kWidth, 2);
  appendLittle(data, UsbCamera::kHeight, 2);
  for (int i = 0; i < 2; ++i) appendLittle(data, bytes * 8 * static_cast<unsigned>(rate), 4);
  appendLittle(data, bytes, 4);
  appendLittle(data, 10'000'000U / static_cast<unsigned>(rate), 4);
  append(data, {1});
  appendLittle(data, 10'000'000U / static_cast<unsigned>(rate), 4);
  append(data, {6, 0x24, 0x0d, 1, 1, 4});
}

Data configurationDescriptor() {
  Data control;
  append(control, {13, 0x24, 1, 0, 1, 13 + 18 + 9, 0, 0x40, 0x42, 0x0f, 0, 1, 1});  // 1 MHz, the streaming interface
  append(control, {18, 0x24, 2, 1, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 3});               // the camera, and its controls:
  append(control, {0b00101010, 0b00000010, 0b00000010});
  append(control, {9, 0x24, 3, 2, 1, 1, 0, 1, 0});  // what goes out over USB
  Data formats;
  appendFormat(formats, 1, false);
  appendFormat(formats, 2, true);
  Data streaming = {15, 0x24, 1, 2};
  appendLittle(streaming, 15 + formats.size(), 2);
  append(streaming, {0x81, 0, 2, 0, 0, 0, 1, 0, 0});
  Data body = {8, 0x0b, 0, 2, 0x0e, 3, 0, 2};
  append(body, {9, 4, 0, 0, 0, 0x0e, 1, 0, 2});
  body.insert(body.end(), control.begin(), control.end());
  append(body, {9, 4, 1, 0, 1, 0x0e, 2, 0, 0});
  body.insert(body.end(), streaming.begin(), streaming.end());
  body.insert(body.end(), formats.begin(), formats.end());
  append(body, {7, 5, 0x81, 2, 0, 2, 0});  // bulk, 512 bytes
  Data whole = {9, 2};
  appendLittle(whole, 9 + body.size(), 2);
  append(whole, {2, 1, 0, 0x80, 50});
  whole.insert(whole.end(), body.begin(), body.end());
  return whole;
}

Data textDescriptor(int number) {
  if (number == 0) return {4, 3, 9, 4};
  const std::string_view text = number == 1 ? "Tests" : number == 2 ? "Played webcam" : "PLAYED-1";
  Data data = {static_cast<std::uint8_t>(2 + 2 * text.size()), 3};
  for (const char letter : text) append(data, {letter, 0});
  return data;
}

}  // namespace tavrel::test
