#pragma once

#include <map>

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

/// The headers of a file's packets of AAC. One thread at a time.
class AdtsHeaders {
 public:
  /// Takes the header from the parameters of a track whose packets change it: no single one can be said in front.
  void check(const AVPacket& packet, AVCodecParameters& parameters);

 private:
  std::map<int, unsigned> first_;  // profile, rate and channels, by track
};

}  // namespace tavrel
