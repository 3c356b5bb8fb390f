#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Platform/Imaging/Image.h"

namespace tavrel {

class DispatchQueue;

/// The frames of an animation, decoded ahead of their player on a queue of their own. Nothing here waits for decoding.
/// Any thread.
class StickerFrames : public std::enable_shared_from_this<StickerFrames> {
 public:
  /// Both functions are called on the queue; neither when nothing is left to do.
  struct Decoder {
    std::size_t count;
    /// How many frames are kept ready at least, the one due included.
    std::size_t ahead;
    /// nullptr where a frame cannot be decoded.
    std::function<std::shared_ptr<Image>(std::size_t index)> frame;
    /// Work for times when no frame is missing; false when it is done.
    std::function<bool()> prepareJumps;
  };
  struct Ready {
    std::size_t index;
    std::shared_ptr<Image> image;
  };

  static std::shared_ptr<StickerFrames> create(Decoder decoder);

  /// The frame due or, while that is not decoded yet, the nearest before it that is newer than the one shown; nothing
  /// while there is none. What is due is decoded next, and what follows it after that. Waits a millisecond at most, and
  /// then finds nothing: the thread that decodes has less right to a processor than its callers.
  std::optional<Ready> newest(std::size_t due, std::size_t shown);
  /// Nothing new is due: has what follows decoded.
  void stayAt(std::size_t shown) { newest(shown, shown); }

 private:
  explicit StickerFrames(Decoder decoder);

  /// How many steps of play lead from one frame to the other.
  std::size_t stepsTo(std::size_t later, std::size_t earlier) const;
  std::optional<std::size_t> firstMissing() const;
  void workIfNeeded(std::chrono::milliseconds delay = {});
  void work();

  const Decoder decoder_;
  const std::size_t ahead_;
  std::mutex mutex_;
  std::size_t due_ = 0;
  std::map<std::size_t, std::shared_ptr<Image>> ready_;
  /// Their memory is given back where nobody waits for that.
  std::vector<std::shared_ptr<Image>> unwanted_;
  bool isWorking_ = false;
  bool preparesJumps_ = true;
  const std::shared_ptr<DispatchQueue> queue_;
};

}  // namespace tavrel
