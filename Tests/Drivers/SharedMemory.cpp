// GBM and the kernel's rules for dma-bufs (https://docs.kernel.org/driver-api/dma-buf.html), on files in memory.
#include "SharedMemory.h"

#include <gbm.h>
#include <linux/dma-buf.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <map>
#include <utility>

#include "NextFunction.h"

namespace {

std::map<ino_t, std::weak_ptr<Memory>>& memories() {
  static auto* const instance = new std::map<ino_t, std::weak_ptr<Memory>>();
  return *instance;
}

ino_t identityOf(int file) {
  struct stat status {};
  return fstat(file, &status) == 0 ? status.st_ino : 0;
}

void synchronise(Memory& memory, std::uint64_t flags) {
  if ((flags & DMA_BUF_SYNC_WRITE) == 0) return;
  if ((flags & DMA_BUF_SYNC_END) != 0) {
    ++memory.version;
  } else if (memory.unsentReads > 0) {
    std::fprintf(stderr, "A buffer of %ux%u is about to be written that commands not yet sent off are to read\n",
                 memory.width, memory.height);
    std::abort();
  }
}

}  // namespace

std::recursive_mutex& driverMutex() {
  static auto* const mutex = new std::recursive_mutex();
  return *mutex;
}

Memory::Memory(std::uint32_t bufferWidth, std::uint32_t bufferHeight)
    : width(bufferWidth),
      height(bufferHeight),
      bytesPerRow((bufferWidth * 4 + 63) / 64 * 64 + 128),
      file(memfd_create("buffer object", MFD_CLOEXEC)) {
  if (ftruncate(file, static_cast<off_t>(byteCount())) != 0) return;
  void* const address = mmap(nullptr, byteCount(), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (address != MAP_FAILED) bytes = address;
}

Memory::~Memory() {
  if (bytes != nullptr) munmap(bytes, byteCount());
  close(file);
}

std::shared_ptr<Memory> Memory::ofFile(int file) {
  const auto found = memories().find(identityOf(file));
  return found != memories().end() ? found->second.lock() : nullptr;
}

struct gbm_device {};
struct gbm_bo {
  std::shared_ptr<Memory> memory;
};

extern "C" {

gbm_device* gbm_create_device(int) { return new gbm_device(); }

gbm_bo* gbm_bo_create(gbm_device*, std::uint32_t width, std::uint32_t height, std::uint32_t, std::uint32_t) {
  auto memory = std::make_shared<Memory>(width, height);
  if (memory->bytes == nullptr) return nullptr;
  const DriverGuard guard(driverMutex());
  std::erase_if(memories(), [](const auto& entry) { return entry.second.expired(); });
  memories()[identityOf(memory->file)] = memory;
  return new gbm_bo{std::move(memory)};
}

void gbm_bo_destroy(gbm_bo* object) {
  const DriverGuard guard(driverMutex());
  delete object;
}

std::uint32_t gbm_bo_get_stride(gbm_bo* object) { return object->memory->bytesPerRow; }

int gbm_bo_get_fd(gbm_bo* object) { return dup(object->memory->file); }

int ioctl(int file, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (request == DMA_BUF_IOCTL_SYNC) {
    const DriverGuard guard(driverMutex());
    if (const auto memory = Memory::ofFile(file)) {
      synchronise(*memory, static_cast<const dma_buf_sync*>(argument)->flags);
      return 0;
    }
  }
  return NEXT(ioctl)(file, request, argument);
}

}  // extern "C"
