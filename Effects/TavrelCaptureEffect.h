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
#include "Platform/Media/MediaTime.h"

namespace tavrel {

class PixelBuffer;
struct SampleTiming;

class TavrelCaptureEffect;

/// What an effect does with a part of a frame.
struct TavrelCaptureEffectPart {
  /// Works on pictures that are the part; none: the effect itself does.
  std::shared_ptr<TavrelCaptureEffect> effect;
  /// The part of the frame behind the effect that it makes of them.
  Rect output;
};

/// Describes one effect that a camera, or a `TavrelCaptureEffectChain`, is asked for. It carries parameters and makes
/// the nodes that draw it.
///
/// An effect of one's own derives from this class. It overrides `copy` and what it needs of the rest: `makeNodes` where
/// it draws on the GPU, `prepareFrame` where it works on pixel buffers, `sizeAfter` where it changes the frame's size.
/// Its setters call `changeProperty`.
///
/// One thread at a time, but for `prepareFrame`.
class TAVREL_API TavrelCaptureEffect : public TavrelObject {
 public:
  using ChangeObserver = std::function<void(std::string_view property)>;
  /// Names one registration; 0 is never given out.
  using ChangeObserverToken = std::uint64_t;

  TavrelCaptureEffect();
  ~TavrelCaptureEffect() override;

  /// An independent new descriptor of the same class; each class says what it takes over. Observers are not.
  virtual std::shared_ptr<TavrelCaptureEffect> copy() const = 0;

  /// Makes the nodes for frames of `frameSize`, in pixels; none by default. Called each time a chain is built: an
  /// effect that hands out nodes of its own, rather than new ones, can be in one chain only. Not on the
  /// video-processing queue.
  virtual TavrelCaptureEffectNodes makeNodes(Size frameSize);
  /// Brings `nodes`, which `makeNodes` made before, up to the new value of `property`, and returns true; returns false,
  /// as it does by default, when nodes have to be made anew. Called by the chain that has the nodes, on the thread that
  /// announced the change.
  virtual bool applyChange(std::string_view property, const TavrelCaptureEffectNodes& nodes);
  /// The size that a frame of `frameSize` has behind the effect, in pixels; the same by default.
  virtual Size sizeAfter(Size frameSize) const;

  /// For frames that are worked on part by part, see `TavrelCaptureEffectChain::part`: the part of a frame of
  /// `frameSize` on which the part `output` of the frame behind the effect depends, in whole pixels from the top left.
  /// None, as by default: the effect works on whole frames only.
  virtual std::optional<Rect> inputFor(const Rect& output, Size frameSize) const;
  /// What the effect does with the part `input`, which has at least what `inputFor` asked for. By default the effect
  /// itself makes the same part of the frame behind it.
  virtual TavrelCaptureEffectPart onPart(const Rect& input, Size frameSize) const;

  /// Called for every frame before it enters the graph: on a camera's capture queue, which waits, or by whoever has a
  /// chain. `pixelBuffer` is what the effect before returned; nullptr where frames have no pixel buffer.
  /// `sampleTimingInfo` is the sample's own timing, `frameTime` the one with which it enters the graph: invalid for the
  /// picture of a snapshot. Returns the pixel buffer to go on with: by default the same.
  virtual std::shared_ptr<PixelBuffer> prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                    const SampleTiming& sampleTimingInfo, MediaTime frameTime);

  /// Whether `prepareFrame` waits until it can show exactly what is due, or shows what is ready by then. A camera says
  /// false, and a `TavrelCaptureEffectChain` true when it is connected. Nothing by default.
  virtual void setWaitsForPictures(bool) {}

  /// Calls `observer` after each announced change, on the announcing thread. Any thread.
  ChangeObserverToken addChangeObserver(ChangeObserver observer);
  /// Ends a registration. An observer that runs on another thread at this moment may still finish after the return.
  void removeChangeObserver(ChangeObserverToken token);

 protected:
  /// Observers watch an effect, not its copies.
  TavrelCaptureEffect(const TavrelCaptureEffect& other);

  /// Refuses numbers that are not finite. Else stores a new value, tells those who observe the property by name, then
  /// announces the change.
  template <typename Property, typename Value>
  void changeProperty(Property& property, Value&& value, std::string_view name) {
    if (!isFinite(value)) return;
    changeValue(property, std::forward<Value>(value), name);
    announceChange(name);
  }
  /// `part` with `margin` pixels more on each side, as far as the frame goes.
  static Rect grown(const Rect& part, double margin, Size frameSize);
  /// Tells whoever has nodes of this effect that `property` has a new value; see `applyChange`.
  void announceChange(std::string_view property);

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
