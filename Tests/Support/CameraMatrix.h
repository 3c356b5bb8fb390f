#pragma once

#include <gtest/gtest.h>

#include <string>

namespace tavrel::test {

/// What a test shows of a camera: a row of Documentation/CameraMatrix.md, which Scripts/prove-cameras makes.
struct CameraCase {
  std::string backend;                 ///< such as "V4L2, vivid"
  std::string format;                  ///< as the device names it
  std::string memory = "-";            ///< the kind of buffers
  std::string rate = "-";              ///< pictures a second
  std::string fault = "none";          ///< what goes wrong
  std::string result = "its picture";  ///< what comes of it
};

/// To be called once it is known to be so; a test that fails afterwards takes it back.
inline void recordCamera(const CameraCase& shown) {
  static int number = 0;
  ::testing::Test::RecordProperty("camera" + std::to_string(++number), shown.backend + " | " + shown.format + " | " +
                                                                           shown.memory + " | " + shown.rate + " | " +
                                                                           shown.fault + " | " + shown.result);
}

}  // namespace tavrel::test
