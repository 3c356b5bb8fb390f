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
#include "Platform/Media/VideoEncoderInfo.h"

namespace tavrel {

inline constexpr const char* kFileTypeQuickTimeMovie = "video/quicktime";
inline constexpr const char* kFileTypeMPEG4 = "video/mp4";
inline constexpr const char* kFileTypeMatroska = "video/x-matroska";
inline constexpr const char* kFileTypeWebM = "video/webm";

enum class AssetWriterStatus { unknown = 0, writing = 1, completed = 2, failed = 3, cancelled = 4 };

class AssetWriterSession;

/// Writes a movie file, through libavformat and libavcodec.
///
///     unknown ──startWriting──▶ writing ──finishWriting──▶ completed
///        │                        ├──encoder or disk fails──▶ failed
///        └──▶ failed              └──cancelWriting──▶ cancelled (also from unknown)
///
/// The file is written and synced to disk in self-contained fragments: however the process ends, the fragments on disk
/// play. Until the first one is complete, the file is a hidden one beside its final path; then it replaces an existing
/// file there. A full disk or a failing encoder ends writing with status failed; the file is kept, and `writtenUntil`
/// tells how far it plays. A movie without a sample is an error and leaves no file. Each input encodes on its own
/// thread, and another thread writes; only the blocking `finishWriting` and `cancelWriting` wait for them. Any thread.
class TAVREL_API AssetWriter {
 public:
  /// Opens the file for writing. Fails if the type is none of the above (`MediaErrorCode::unsupportedFileType`), the
  /// file cannot be created (`unwritableFile`, "posix") or is being written already (`fileInUse`).
  static Expected<std::shared_ptr<AssetWriter>> create(const std::filesystem::path& url, std::string_view fileType);

  /// Loads the libraries that the first call of `create` in the process would otherwise load. Any thread.
  static void prepare();

  /// The type for the file's extension; nothing unless it is .mov, .mp4, .mkv or .webm.
  static std::optional<std::string> fileTypeOf(const std::filesystem::path& url);
  /// Whether a file of this type can store samples of `format` without encoding them; texts of subtitles may be
  /// converted to another format of texts.
  static bool canStore(const FormatDescription& format, std::string_view fileType);
  /// Whether a file of this type can have such a cover beside this metadata.
  static bool canStore(const Artwork& artwork, const std::vector<MetadataItem>& metadata, std::string_view fileType);
  /// The usual codecs of files of this type, as values of `kVideoCodecKey` and `kAudioFormatIDKey`: VP9 and Opus in
  /// WebM, H.264 and AAC elsewhere.
  static std::string usualVideoCodec(std::string_view fileType);
  static std::uint32_t usualAudioFormat(std::string_view fileType);
  /// The video encoders that work on this machine now, in the order in which they are tried. Opens each of them, which
  /// takes up to some tenths of a second.
  static std::vector<VideoEncoderInfo> videoEncoders();

  AssetWriter(const AssetWriter&) = delete;
  AssetWriter& operator=(const AssetWriter&) = delete;
  /// Finishes a file that is being written, as `finishWriting` does. A file without a sample is removed.
  ~AssetWriter();

  AssetWriterStatus status() const;
  /// Why the status is failed, or why `addInput` last returned false.
  std::optional<Error> error() const;

  /// The time that a fragment spans, and thus the most that a crash can lose: 0.1 s to 10 s, by default 1 s. Set before
  /// writing starts.
  void setMovieFragmentInterval(MediaTime interval);
  MediaTime movieFragmentInterval() const;
  /// Whether a finished QuickTime or MP4 file stays fragmented; by default false. Otherwise finishing converts it to a
  /// regular movie in place, with one index and one block of data, without copying; only a movie with a gap of 2³¹
  /// units of its timescale between two samples stays fragmented. Set before writing starts.
  void setStaysFragmented(bool stays);
  bool staysFragmented() const;
  /// The longest regular movie whose index fits before the data, so that players can start before they have loaded it
  /// all; by default 600 s, for which 480 kB are reserved. A longer movie has its index at the end. Set before writing
  /// starts.
  void setIndexRoom(MediaTime duration);
  MediaTime indexRoom() const;
  /// Stored in the file's header, with the creation date unless given. Set before writing starts.
  void setMetadata(std::vector<MetadataItem> metadata);
  std::vector<MetadataItem> metadata() const;
  /// Set before writing starts. Files that stay fragmented have neither, and a cover that the file type cannot have is
  /// left out.
  void setChapters(std::vector<Chapter> chapters);
  void setArtwork(std::optional<Artwork> artwork);
  /// True: the file appears under its name only once complete, and writing that fails leaves nothing. Set before
  /// writing starts.
  void setAppearsWhenComplete(bool appears);

  /// False, with the reason in `error()`, once writing has started, if the input already belongs to a writer, or if its
  /// settings cannot be encoded or stored in the container.
  bool addInput(const std::shared_ptr<AssetWriterInput>& input);

  /// Opens the encoders. False, with status failed and an error, if that fails or there is no input; false without
  /// effect unless the status is unknown.
  bool startWriting();
  /// Starts accepting samples and makes `time` the movie's time 0; samples before it are left out, but for packets that
  /// a decoder needs: those of sound by up to 0.1 s, and in QuickTime and MP4 those of pictures by up to a minute,
  /// which are stored and not shown. Only the first call while writing has an effect.
  void startSessionAtSourceTime(MediaTime time);

  /// Writes all appended samples and completes the file before it returns. True if the status is completed.
  bool finishWriting();
  /// The same without waiting. `completion` is called once in any state, on the writer's own queue, when the status is
  /// final.
  void finishWriting(std::function<void()> completion);
  /// Stops writing and removes the file. Has no effect once completed, failed or cancelled.
  void cancelWriting();

  /// The end, on the movie's time line, of what is safely in the file; zero before the first fragment.
  MediaTime writtenUntil() const;
  /// Number of frames, or audio packets, that are safely in the file.
  std::uint64_t writtenSamples(MediaType mediaType) const;

 private:
  explicit AssetWriter(std::shared_ptr<AssetWriterSession> session);

  std::shared_ptr<AssetWriterSession> session_;
};

}  // namespace tavrel
