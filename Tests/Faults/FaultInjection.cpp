/// Preloaded into `tavrel` by prove-faults: lets one thing go wrong, and notes when.
///
/// TAVREL_FAULT is KIND or KIND:NUMBER:
///   full:BYTES           so many bytes can be written to files in the folder, then "No space left on device"
///   short                every write to them takes a part only, some are interrupted
///   eio:N, eio-once:N    their N-th write fails, with all that follow or alone
///   stall:MILLISECONDS   every write to them takes so long
///   fsync                they cannot be brought to the disk
///   context:N            the N-th GL context is refused
///   encoder-open         encoders of pictures do not open
///   encoder:N            the N-th picture cannot be encoded, nor those that follow
///   memory:N             inside the encoder of pictures, memory is refused from the N-th time on; memory-once:N
/// TAVREL_FAULT_FOLDER is the folder; TAVREL_FAULT_NOTES the file that the notes (below) are kept in.
#include <EGL/egl.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace {

/// Read by prove-faults, also after the process was killed. Times in seconds of CLOCK_MONOTONIC.
struct Notes {
  std::atomic<double> firstPicture;  ///< when it came to the encoder
  std::atomic<double> fault;         ///< when something first went wrong
  std::atomic<double> faults;
  std::atomic<double> writes;
  std::atomic<double> contexts;
  std::atomic<double> pictures;
  std::atomic<double> allocations;  ///< inside the encoder
};

Notes unread{};
Notes* notes = &unread;
std::string_view kind = "";
std::size_t number = 0;
const char* folder = nullptr;

// Not to be allocated at first use: malloc asks for it.
__attribute__((tls_model("initial-exec"))) thread_local bool isInEncoder = false;

double now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::size_t count(std::atomic<double>& what) { return static_cast<std::size_t>(what.fetch_add(1)) + 1; }

void noteFault() {
  if (count(notes->faults) == 1) notes->fault = now();
}

__attribute__((constructor)) void prepare() {
  folder = std::getenv("TAVREL_FAULT_FOLDER");
  if (const char* const fault = std::getenv("TAVREL_FAULT")) {
    const std::string_view text = fault;
    kind = text.substr(0, text.find(':'));
    if (kind.size() < text.size()) number = std::strtoul(fault + kind.size() + 1, nullptr, 10);
  }
  const char* const path = std::getenv("TAVREL_FAULT_NOTES");
  const int file = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
  if (file < 0) return;
  void* const memory = mmap(nullptr, sizeof(Notes), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (memory != MAP_FAILED) notes = static_cast<Notes*>(memory);
  close(file);
}

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool isWatched(int descriptor) {
  if (!folder || descriptor <= STDERR_FILENO) return false;
  char link[64];
  char path[4096];
  std::snprintf(link, sizeof(link), "/proc/self/fd/%d", descriptor);
  const ssize_t length = readlink(link, path, sizeof(path));
  return length > 0 &&
         std::string_view(path, static_cast<std::size_t>(length)).substr(0, std::strlen(folder)) == folder;
}

ssize_t failing(int error) {
  noteFault();
  errno = error;
  return -1;
}

/// Whether the `turn`-th of something goes wrong, and those after it, or only it when the kind ends in "-once".
bool isDue(std::string_view of, std::size_t turn) {
  if (kind == of) return turn >= number;
  return kind.substr(0, of.size()) == of && kind.substr(of.size()) == "-once" && turn == number;
}

/// `write` with the size that is left of a write when everything that is wrong with files was done to it.
template <typename Write>
ssize_t watchedWrite(int descriptor, std::size_t size, const Write& write) {
  if (!isWatched(descriptor)) return write(size);
  const std::size_t turn = count(notes->writes);
  if (isDue("eio", turn)) return failing(EIO);
  if (kind == "stall") usleep(static_cast<useconds_t>(number * 1000));
  if (kind == "short" && turn % 5 == 0) return failing(EINTR);
  if (kind == "short") size = std::min<std::size_t>(size, 1 + turn * 2654435761U % 3000);
  static std::atomic<std::size_t> used = 0;
  if (kind == "full") {
    const std::size_t room = number - std::min(number, used.load());
    if (room == 0 && size > 0) return failing(ENOSPC);
    size = std::min(size, room);
  }
  const ssize_t written = write(size);
  if (written < 0) noteFault();  // a disk that is really full
  if (written > 0) used += static_cast<std::size_t>(written);
  return written;
}

bool isMemoryRefused() {
  if (!isInEncoder) return false;
  if (!isDue("memory", count(notes->allocations))) return false;
  noteFault();
  return true;
}

/// While one is there, the thread is in the encoder.
class InEncoder {
 public:
  InEncoder(const AVCodecContext* context, const AVCodec* codec) : before_(isInEncoder) {
    isInEncoder = context->codec_type == AVMEDIA_TYPE_VIDEO && codec && av_codec_is_encoder(codec);
  }
  InEncoder(const InEncoder&) = delete;
  InEncoder& operator=(const InEncoder&) = delete;
  ~InEncoder() { isInEncoder = before_; }

 private:
  bool before_;
};

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): these are the names that the C library gives its own.
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
// NOLINTEND(bugprone-reserved-identifier)

void* malloc(std::size_t size) { return isMemoryRefused() ? nullptr : __libc_malloc(size); }

void* calloc(std::size_t many, std::size_t size) { return isMemoryRefused() ? nullptr : __libc_calloc(many, size); }

void* realloc(void* memory, std::size_t size) { return isMemoryRefused() ? nullptr : __libc_realloc(memory, size); }

void* memalign(std::size_t alignment, std::size_t size) {
  return isMemoryRefused() ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  if (isMemoryRefused()) return ENOMEM;
  *memory = __libc_memalign(alignment, size);
  return *memory ? 0 : ENOMEM;
}

ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  static auto* const real = next<decltype(write)>("write");
  return watchedWrite(descriptor, size, [&](std::size_t part) { return real(descriptor, bytes, part); });
}

ssize_t pwrite(int descriptor, const void* bytes, std::size_t size, off_t offset) {
  static auto* const real = next<decltype(pwrite)>("pwrite");
  return watchedWrite(descriptor, size, [&](std::size_t part) { return real(descriptor, bytes, part, offset); });
}

int fsync(int descriptor) {
  if (kind == "fsync" && isWatched(descriptor)) return static_cast<int>(failing(EIO));
  return next<decltype(fsync)>("fsync")(descriptor);
}

int fdatasync(int descriptor) {
  if (kind == "fsync" && isWatched(descriptor)) return static_cast<int>(failing(EIO));
  return next<decltype(fdatasync)>("fdatasync")(descriptor);
}

EGLContext eglCreateContext(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes) {
  if (isDue("context", count(notes->contexts))) {
    noteFault();
    return EGL_NO_CONTEXT;
  }
  return next<decltype(eglCreateContext)>("eglCreateContext")(display, config, share, attributes);
}

EGLint eglGetError() {
  const bool isRefused = kind == "context" && notes->faults.load() > 0;
  return isRefused ? EGL_BAD_ALLOC : next<decltype(eglGetError)>("eglGetError")();
}

int avcodec_open2(AVCodecContext* context, const AVCodec* codec, AVDictionary** options) {
  const auto real = next<decltype(avcodec_open2)>("avcodec_open2");
  const InEncoder inside(context, codec);
  if (isInEncoder && kind == "encoder-open") {
    noteFault();
    return AVERROR(ENOMEM);
  }
  return real(context, codec, options);
}

int avcodec_send_frame(AVCodecContext* context, const AVFrame* frame) {
  const auto real = next<decltype(avcodec_send_frame)>("avcodec_send_frame");
  const InEncoder inside(context, context->codec);
  if (!isInEncoder || !frame) return real(context, frame);
  const std::size_t turn = count(notes->pictures);
  if (turn == 1) notes->firstPicture = now();
  if (isDue("encoder", turn)) {
    noteFault();
    return AVERROR(ENOMEM);
  }
  return real(context, frame);
}

int avcodec_receive_packet(AVCodecContext* context, AVPacket* packet) {
  const InEncoder inside(context, context->codec);
  return next<decltype(avcodec_receive_packet)>("avcodec_receive_packet")(context, packet);
}

}  // extern "C"
