#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "Effects/TavrelCaptureEffectNodes.h"
#include "Effects/TavrelObject.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

class PixelBuffer;
struct SampleTiming;

class TavrelCaptureEffect;

/// How an effect processes a part of a frame.
struct TavrelCaptureEffectPart {
  /// Processes frames that are only the part; nullptr for the effect itself.
  std::shared_ptr<TavrelCaptureEffect> effect;
  /// The resulting part of the frame after the effect.
  Rect output;
};

/// Describes an effect of a camera or `TavrelCaptureEffectChain`: holds its parameters and creates the nodes that draw
/// it.
///
/// To write an effect, derive from this class and override `copy` and, as needed, `makeNodes` to draw on the GPU,
/// `prepareFrame` to process pixel buffers, and `sizeAfter` to change the frame's size. Call `changeProperty` in
/// setters.
///
/// One thread at a time, except `prepareFrame`.
class TAVREL_API TavrelCaptureEffect : public TavrelObject {
 public:
  using ChangeObserver = std::function<void(std::string_view property)>;
  /// Identifies a registration; never 0.
  using ChangeObserverToken = std::uint64_t;

  TavrelCaptureEffect();
  ~TavrelCaptureEffect() override;

  /// An independent effect of the same class. Each class documents what is copied; observers are not.
  virtual std::shared_ptr<TavrelCaptureEffect> copy() const = 0;

  /// Creates the nodes for frames of `frameSize`, in pixels; none by default. Called each time a chain is built, but
  /// not on the video-processing queue. An effect that returns the same nodes each time can be in one chain only.
  virtual TavrelCaptureEffectNodes makeNodes(Size frameSize);
  /// Applies the new value of `property` to `nodes`, which `makeNodes` returned, and returns true; returns false, the
  /// default, if they must be created anew. Called by the chain that owns the nodes, on the thread that announced the
  /// change.
  virtual bool applyChange(std::string_view property, const TavrelCaptureEffectNodes& nodes);
  /// The size in pixels of a frame of `frameSize` after the effect; by default the same.
  virtual Size sizeAfter(Size frameSize) const;

  /// For frames processed in parts (see `TavrelCaptureEffectChain::part`): the part of a frame of `frameSize` on which
  /// the part `output` of the result depends, in whole pixels from the top left. Nothing, the default, if the effect
  /// needs whole frames.
  virtual std::optional<Rect> inputFor(const Rect& output, Size frameSize) const;
  /// How the effect processes the part `input`, which contains the result of `inputFor`. By default the effect itself
  /// produces the same part of the result.
  virtual TavrelCaptureEffectPart onPart(const Rect& input, Size frameSize) const;

  /// Called for every frame before it enters the graph: on the camera's capture queue, which waits, or by the owner of
  /// a chain. `pixelBuffer` is what the previous effect returned, or nullptr if frames have none. `sampleTimingInfo` is
  /// the sample's timing; `frameTime`, with which the frame enters the graph, is invalid for a snapshot. Returns the
  /// pixel buffer to continue with; by default the same.
  virtual std::shared_ptr<PixelBuffer> prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                    const SampleTiming& sampleTimingInfo, MediaTime frameTime);

  /// Whether `prepareFrame` waits to show exactly what is due, or shows what is ready. Called with false by a camera,
  /// and with true by a `TavrelCaptureEffectChain` when connected. Does nothing by default.
  virtual void setWaitsForPictures(bool) {}

  /// Calls `observer` after each announced change, on the announcing thread. Any thread.
  ChangeObserverToken addChangeObserver(ChangeObserver observer);
  /// Ends a registration. An observer in progress on another thread may still finish after the return.
  void removeChangeObserver(ChangeObserverToken token);

 protected:
  /// Copies have no observers.
  TavrelCaptureEffect(const TavrelCaptureEffect& other);

  /// Stores the value, calls the property's observers, then announces the change. Rejects numbers that are not finite.
  template <typename Property, typename Value>
  void changeProperty(Property& property, Value&& value, std::string_view name) {
    if (!isFinite(value)) return;
    changeValue(property, std::forward<Value>(value), name);
    announceChange(name);
  }
  /// `part` with a margin of `margin` pixels on each side, clipped to the frame.
  static Rect grown(const Rect& part, double margin, Size frameSize);
  /// Tells the owners of this effect's nodes that `property` has changed; see `applyChange`.
  void announceChange(std::string_view property);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
