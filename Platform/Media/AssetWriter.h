#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Media/AssetWriterInput.h"
#include "Platform/Media/MediaTime.h"
#include "Platform/Media/MetadataItem.h"

namespace tavrel {

inline constexpr const char* kFileTypeQuickTimeMovie = "video/quicktime";
inline constexpr const char* kFileTypeMPEG4 = "video/mp4";
inline constexpr const char* kFileTypeMatroska = "video/x-matroska";

enum class AssetWriterStatus { unknown = 0, writing = 1, completed = 2, failed = 3, cancelled = 4 };

class AssetWriterSession;

/// Writes a movie file, through libavformat and libavcodec.
///
///     unknown ──startWriting──▶ writing ──finishWriting──▶ completed
///        │                        ├──encoder or disk fails──▶ failed
///        └──▶ failed              └──cancelWriting──▶ cancelled (also from unknown)
///
/// The file is written in fragments, each complete in itself: whatever ends the process, what reached the disk before
/// plays. Each is brought to the disk. The file gets its name with the first one, and a file that had the name is there
/// until then; before, it is a hidden one beside it. A full disk or a failing encoder ends the writing with status
/// failed; the file is kept, and `writtenUntil` says up to when it plays. A movie without a sample is an error, and no
/// file. Encoding runs on one thread for each input and writing on one more; no call but the blocking `finishWriting`
/// and `cancelWriting` waits for them. Any thread.
class TAVREL_API AssetWriter {
 public:
  /// Opens the file for writing. Fails (`MediaErrorCode::unsupportedFileType`, `unwritableFile`, `fileInUse`, "posix")
  /// when the type is none of the above, when the file cannot be created there, and when it is being written already.
  static Expected<std::shared_ptr<AssetWriter>> create(const std::filesystem::path& url, std::string_view fileType);

  /// The type that a file's name asks for, by its ending; nothing when that is none of .mov, .mp4 and .mkv.
  static std::optional<std::string> fileTypeOf(const std::filesystem::path& url);
  /// Whether a file of this type can take samples of `format` as they come, without settings.
  static bool canStore(const FormatDescription& format, std::string_view fileType);

  AssetWriter(const AssetWriter&) = delete;
  AssetWriter& operator=(const AssetWriter&) = delete;
  /// Finishes a file that is being written, as `finishWriting` does. A file that nothing was written to is removed.
  ~AssetWriter();

  AssetWriterStatus status() const;
  /// Why the status is failed, or why `addInput` answered false last.
  std::optional<Error> error() const;

  /// How much time a fragment spans, and so how much an end by force can lose; 1 s at first, 0.1 s to 10 s. Before
  /// writing starts.
  void setMovieFragmentInterval(MediaTime interval);
  MediaTime movieFragmentInterval() const;
  /// Whether a finished QuickTime or MP4 file stays in the fragments that it was recorded in; false at first. Otherwise
  /// finishing makes a regular movie of it, in place: one index, one piece of data, nothing copied; only a movie with a
  /// pause of 2³¹ units of its timescale between two samples stays as it is. Before writing starts.
  void setStaysFragmented(bool stays);
  bool staysFragmented() const;
  /// How long a regular movie may get whose index finds room in front of the data, so that players that load it need
  /// not look at its end; 600 s at first, for which 480 kB are set aside. A longer movie has its index at the end.
  /// Before writing starts.
  void setIndexRoom(MediaTime duration);
  MediaTime indexRoom() const;
  /// Written into the file's header, with the date of creation where that is not given. Before writing starts.
  void setMetadata(std::vector<MetadataItem> metadata);
  std::vector<MetadataItem> metadata() const;
  /// True: the file gets its name when it is complete, and a recording that breaks off leaves nothing. Before writing
  /// starts.
  void setAppearsWhenComplete(bool appears);

  /// False, with the reason in `error()`, once writing has started, for an input that serves a writer already, and for
  /// settings that cannot be encoded or that the container cannot take.
  bool addInput(const std::shared_ptr<AssetWriterInput>& input);

  /// Opens the encoders. False, with status failed and an error, when that is not possible or there is no input; false
  /// without effect when the status is not unknown.
  bool startWriting();
  /// Makes `time` the movie's time 0. Samples before it are left out. Samples are taken from now on; only the first
  /// call while writing has an effect.
  void startSessionAtSourceTime(MediaTime time);

  /// Writes what was appended and completes the file; returns when that is done. True when the status is completed.
  bool finishWriting();
  /// The same without waiting; `completion` is called on a queue of the writer's own when the status is final. It is
  /// called in every state.
  void finishWriting(std::function<void()> completion);
  /// Gives up and removes the file. No effect once completed, failed or cancelled.
  void cancelWriting();

  /// How far the movie reaches that is safely in the file, on the movie's time line; zero before the first fragment.
  MediaTime writtenUntil() const;
  /// How many pictures, or packets of sound, are safely in the file.
  std::uint64_t writtenSamples(MediaType mediaType) const;

 private:
  explicit AssetWriter(std::shared_ptr<AssetWriterSession> session);

  std::shared_ptr<AssetWriterSession> session_;
};

}  // namespace tavrel
