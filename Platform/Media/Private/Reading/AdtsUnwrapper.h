#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// Takes the headers off the packets of AAC from a transport stream: movie files say once, in front, what these say
/// each time. One thread at a time.
class AdtsUnwrapper {
 public:
  static bool isNeededFor(const AVStream& stream);
  static Expected<AdtsUnwrapper> create(const AVCodecParameters& parameters);

  /// False, with an empty packet, for one that is damaged. The first one may bring the header as side data.
  bool unwrap(AVPacket& packet);

  /// Gives the parameters of such tracks the header that their first packets tell; reads the file up to these.
  static void completeHeaders(AVFormatContext& file);

 private:
  using Filter = std::unique_ptr<AVBSFContext, FFmpegDeleter<AVBSFContext, av_bsf_free>>;

  explicit AdtsUnwrapper(Filter filter) : filter_(std::move(filter)) {}

  Filter filter_;
};

}  // namespace tavrel
