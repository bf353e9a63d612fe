// Memory below 4 GiB for the native records, whose addresses Java keeps in int fields.
//
// On a 64-bit host the heap lies far above that, so address space is reserved at low addresses in
// regions of a few megabytes, as needed, and cut into blocks by size. Blocks go back to a list of
// their size and are used again; regions are kept. Nothing outside this file knows of it.

#include <sys/mman.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "oralayer8.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define __lsan_register_root_region(address, size) ((void)(address), (void)(size))
#endif

namespace {

constexpr std::uintptr_t kLowest = 0x00100000;  // above what the kernel keeps for null pointers
constexpr std::uintptr_t kLimit = 0x100000000;  // a record must end below it
constexpr std::size_t kRegionSize = 0x00400000;
constexpr std::size_t kGranule = 16;
constexpr std::size_t kSmallest = 32;  // header and a little
constexpr int kClasses = 28;  // powers of two from kSmallest to 4 GiB

// In front of every block; keeps the block aligned to the granule.
struct alignas(kGranule) Header {
  std::uint32_t size_class;
};

struct FreeBlock {
  FreeBlock* next;
};

// Where a region of `size` bytes may start, from `from` upwards; 0 when there is no room left.
// MAP_32BIT would look between 1 and 2 GiB only, a range that JVMs like to fill.
std::uintptr_t map_region(std::uintptr_t from, std::size_t size) {
  for (std::uintptr_t at = from; at + size <= kLimit; at += kRegionSize) {
    void* wanted = reinterpret_cast<void*>(at);
    void* got = mmap(wanted, size, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
    if (got == wanted) return at;
    // A kernel that does not know the flag takes the address as a hint.
    if (got != MAP_FAILED) munmap(got, size);
  }
  return 0;
}

class Arena {
 public:
  void* allocate(std::size_t size) {
    if (size > kLimit / 2) return nullptr;
    int size_class = 0;
    while ((kSmallest << size_class) < size + sizeof(Header)) ++size_class;
    const std::size_t block = kSmallest << size_class;

    std::lock_guard<std::mutex> lock(mutex_);
    void* found = take_free(size_class, block);
    if (found == nullptr) found = cut(block);
    if (found == nullptr) return nullptr;
    auto* header = static_cast<Header*>(found);
    header->size_class = static_cast<std::uint32_t>(size_class);
    return header + 1;
  }

  void release(void* record) {
    auto* header = static_cast<Header*>(record) - 1;
    const std::uint32_t size_class = header->size_class;
    const std::size_t block = kSmallest << size_class;
    std::lock_guard<std::mutex> lock(mutex_);
    auto* free_block = reinterpret_cast<FreeBlock*>(header);
    free_block->next = free_[size_class];
    free_[size_class] = free_block;
    ASAN_POISON_MEMORY_REGION(header + 1, block - sizeof(Header));
  }

 private:
  void* take_free(int size_class, std::size_t block) {
    FreeBlock* first = free_[size_class];
    if (first == nullptr) return nullptr;
    free_[size_class] = first->next;
    ASAN_UNPOISON_MEMORY_REGION(first, block);
    return first;
  }

  void* cut(std::size_t block) {
    if (block > end_ - next_ && !grow(block)) return nullptr;
    void* start = reinterpret_cast<void*>(next_);
    next_ += block;
    return start;
  }

  // The rest of the former region, less than one block, is given up.
  bool grow(std::size_t block) {
    const std::size_t size = (block + kRegionSize - 1) / kRegionSize * kRegionSize;
    const std::uintptr_t start = map_region(size > kRegionSize ? kLowest : scan_from_, size);
    if (start == 0) return false;
    if (size == kRegionSize) scan_from_ = start + size;
    __lsan_register_root_region(reinterpret_cast<void*>(start), size);
    next_ = start;
    end_ = start + size;
    return true;
  }

  std::mutex mutex_;
  std::array<FreeBlock*, kClasses> free_{};
  std::uintptr_t next_ = 0;
  std::uintptr_t end_ = 0;
  std::uintptr_t scan_from_ = kLowest;
};

// Never destroyed: the session pools give their records back during the process's own end.
constinit Arena arena;

constexpr bool kHeapIsLow = sizeof(void*) == sizeof(std::uint32_t);

}  // namespace

void* allocate_low(std::size_t size) noexcept {
  if constexpr (kHeapIsLow) return std::malloc(size);
  return arena.allocate(size);
}

void release_low(void* record) noexcept {
  if (record == nullptr) return;
  if constexpr (kHeapIsLow) {
    std::free(record);
  } else {
    arena.release(record);
  }
}
