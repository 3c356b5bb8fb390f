#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Model/StickerPlace.h"
#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// One line of the list of effects: an effect of the library with what can be changed about it. Main thread.
class StudioEffect {
 public:
  /// A number with a slider.
  struct Level {
    const char* name;
    double least;
    double most;
    double value;
  };

  virtual ~StudioEffect() = default;

  /// What the settings file calls it: "beauty", "blur", "table" or "sticker".
  virtual const char* kind() const = 0;
  /// For people.
  virtual std::string title() const = 0;
  /// Shared with the camera, which follows its changes.
  virtual std::shared_ptr<TavrelCaptureEffect> captureEffect() const = 0;
  /// The picture or table that it shows; empty without one.
  const std::filesystem::path& file() const { return file_; }

  const std::vector<Level>& levels() const { return levels_; }
  /// Clamped; acts with the next frame.
  void setLevel(std::size_t index, double value);
  bool isOn() const { return isOn_; }
  /// Where it lies on the frame; null for an effect of the whole frame, which `setPlace` leaves as it is.
  virtual const StickerPlace* place() const { return nullptr; }
  /// Shows with the next frame; no frame is lost.
  virtual void setPlace(const StickerPlace& /*place*/) {}

 protected:
  explicit StudioEffect(std::vector<Level> levels, std::filesystem::path file = {})
      : levels_(std::move(levels)), file_(std::move(file)) {}
  double level(std::size_t index) const { return levels_[index].value; }

 private:
  friend class EffectList;
  virtual void levelsDidChange() {}

  std::vector<Level> levels_;
  std::filesystem::path file_;
  bool isOn_ = true;
};

/// A picture or animation on the frame.
class StickerEffect : public StudioEffect {
 public:
  /// Fails if the file holds no picture.
  static Expected<std::shared_ptr<StickerEffect>> open(const std::filesystem::path& file);

  const char* kind() const override { return "sticker"; }
  std::string title() const override { return file().filename().string(); }
  /// In pixels.
  virtual Size pictureSize() const = 0;
  const StickerPlace* place() const override { return &place_; }
  void setPlace(const StickerPlace& place) override;

 protected:
  using StudioEffect::StudioEffect;

 private:
  virtual void showAt(const StickerPlace& place) = 0;

  StickerPlace place_;
};

std::shared_ptr<StudioEffect> makeBeauty();
std::shared_ptr<StudioEffect> makeBlur();
/// Fails if the file is no lookup table.
Expected<std::shared_ptr<StudioEffect>> openTable(const std::filesystem::path& file);

}  // namespace tavrel::studio
