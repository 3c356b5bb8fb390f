#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Capture/V4L2/Private/V4L2Backend.h"
#include "Support/CaptureFakeVideoNode.h"
#include "Support/CaptureTestSupport.h"

namespace tavrel::test {

/// The library on nodes that this test plays, in a folder of its own.
class V4L2Test : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(folder_); }
  void TearDown() override {
    CaptureSystem::shared().restart();
    std::filesystem::remove_all(folder_);
    for (const auto& node : nodes_) {
      EXPECT_THAT(node->violations(), ::testing::IsEmpty());
      EXPECT_EQ(node->openCount(), 0) << "a node was left open";
      EXPECT_EQ(node->mappedCount(), 0) << "memory was left mapped";
    }
  }

  std::filesystem::path pathOf(int number) const { return folder_ / ("video" + std::to_string(number)); }
  void createFile(int number) const { std::ofstream(pathOf(number)) << ""; }
  std::shared_ptr<FakeVideoNode> addNode(int number) {
    createFile(number);
    nodes_.push_back(std::make_shared<FakeVideoNode>(pathOf(number).string()));
    return nodes_.back();
  }
  void start(CaptureSystem::Synthetic synthetic = CaptureSystem::Synthetic::never) const {
    CaptureSystem::shared().restartWith({std::make_shared<V4L2Backend>(FakeVideoNode::calls(nodes_), folder_)},
                                        synthetic);
  }
  static std::vector<std::shared_ptr<CaptureDevice>> cameras() {
    return CaptureDevice::devicesWithMediaType(MediaType::video);
  }

  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("tavrel-v4l2-" + std::to_string(getpid()));
  std::vector<std::shared_ptr<FakeVideoNode>> nodes_;
};

/// YUYV, limited range: luma is 16 + the frame's number, no colour.
inline std::size_t drawNumber(std::uint8_t* bytes, std::size_t capacity, std::uint32_t sequence) {
  for (std::size_t i = 0; i < capacity; i += 2) {
    bytes[i] = static_cast<std::uint8_t>(16 + sequence % 100);
    bytes[i + 1] = 128;
  }
  return capacity;
}

}  // namespace tavrel::test
