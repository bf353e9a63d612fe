// Memory below 4 GiB for the native records, whose addresses Java keeps in int fields.
//
// On a 64-bit host the heap lies far above that, so address space is reserved at low addresses in
// regions of a few megabytes, as needed, and cut into blocks by size. Blocks go back to a list of
// their size and are used again; regions are kept.
//
// The header in front of each block also carries the record's version and what it borrows
// (record_version, note_lender). It is never reused for anything else, so the version in it can
// be read by whoever remembers a record, also after that record's end.

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>

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
// A record must end below it. A 32-bit process leaves the top to the kernel.
constexpr std::uint64_t kLimit = sizeof(void*) == 4 ? 0xC0000000 : 0x100000000;
constexpr std::size_t kRegionSize = 0x00400000;
constexpr std::size_t kGranule = 16;
constexpr std::size_t kSmallest = 32;  // header and a little
constexpr int kClasses = 28;  // powers of two from kSmallest to 4 GiB

// In front of every block; keeps the block aligned to the granule.
struct alignas(kGranule) Header {
  std::uint32_t size_class;
  std::atomic<std::uint32_t> version;  // fresh regions start at 0, records at 1
  std::uint32_t lender;  // address of the record that this one borrows from; 0: none
  std::uint32_t lender_version;
};
static_assert(sizeof(Header) == kGranule);

Header* header_of(void* record) {
  return static_cast<Header*>(record) - 1;
}

// A free block, behind its header.
struct FreeBlock {
  FreeBlock* next;
};

// Where a region of `size` bytes may start, from `from` upwards; 0 when there is no room left.
// MAP_32BIT would look between 1 and 2 GiB only, a range that JVMs like to fill.
std::uintptr_t map_region(std::uintptr_t from, std::size_t size) {
  for (std::uint64_t at = from; at + size <= kLimit; at += kRegionSize) {
    void* wanted = reinterpret_cast<void*>(static_cast<std::uintptr_t>(at));
    void* got = mmap(wanted, size, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
    if (got == wanted) return static_cast<std::uintptr_t>(at);
    // A kernel that does not know the flag takes the address as a hint.
    if (got != MAP_FAILED) munmap(got, size);
  }
  return 0;
}

class Arena {
 public:
  void* allocate(std::size_t size) {
    if (size > kLimit / 4) return nullptr;
    std::uint32_t size_class = 0;
    while (block_size(size_class) < size + sizeof(Header)) ++size_class;

    std::lock_guard<std::mutex> lock(mutex_);
    void* record = take_free(size_class);
    if (record == nullptr) record = cut(size_class);
    if (record == nullptr) return nullptr;
    ++header_of(record)->version;
    header_of(record)->lender = 0;
    return record;
  }

  void release(void* record) {
    Header* header = header_of(record);
    ++header->version;
    std::lock_guard<std::mutex> lock(mutex_);
    free_[header->size_class] = new (record) FreeBlock{free_[header->size_class]};
    ASAN_POISON_MEMORY_REGION(record, block_size(header->size_class) - sizeof(Header));
  }

  bool owns(const void* record) const {
    const auto address = reinterpret_cast<std::uintptr_t>(record);
    return address >= kLowest && address < kLimit &&
           owned_[(address - kLowest) / kRegionSize].load(std::memory_order_acquire);
  }

 private:
  static std::size_t block_size(std::uint32_t size_class) { return kSmallest << size_class; }

  void* take_free(std::uint32_t size_class) {
    FreeBlock* first = free_[size_class];
    if (first == nullptr) return nullptr;
    ASAN_UNPOISON_MEMORY_REGION(first, block_size(size_class) - sizeof(Header));
    free_[size_class] = first->next;
    return first;
  }

  void* cut(std::uint32_t size_class) {
    const std::size_t block = block_size(size_class);
    if (block > end_ - next_ && !grow(block)) return nullptr;
    auto* header = new (reinterpret_cast<void*>(next_)) Header{size_class, 0, 0, 0};
    next_ += block;
    return header + 1;
  }

  // The rest of the former region, less than one block, is given up.
  bool grow(std::size_t block) {
    const std::size_t size = (block + kRegionSize - 1) / kRegionSize * kRegionSize;
    const std::uintptr_t start = map_region(size > kRegionSize ? kLowest : scan_from_, size);
    if (start == 0) return false;
    if (size == kRegionSize) scan_from_ = start + size;
    __lsan_register_root_region(reinterpret_cast<void*>(start), size);
    for (std::uintptr_t at = start; at < start + size; at += kRegionSize) {
      owned_[(at - kLowest) / kRegionSize].store(true, std::memory_order_release);
    }
    next_ = start;
    end_ = start + size;
    return true;
  }

  std::mutex mutex_;
  std::array<FreeBlock*, kClasses> free_{};
  std::uintptr_t next_ = 0;
  std::uintptr_t end_ = 0;
  std::uintptr_t scan_from_ = kLowest;
  std::array<std::atomic<bool>, kLimit / kRegionSize> owned_{};
};

// Never destroyed: the session pools give their records back during the process's own end.
constinit Arena arena;

}  // namespace

void* allocate_low(std::size_t size) noexcept {
  return arena.allocate(size);
}

void release_low(void* record) noexcept {
  if (record != nullptr) arena.release(record);
}

std::uint32_t record_version(const void* record) noexcept {
  if (!arena.owns(record)) return 0;
  return header_of(const_cast<void*>(record))->version.load(std::memory_order_relaxed);
}

void touch_record(void* record) noexcept {
  if (arena.owns(record)) ++header_of(record)->version;
}

void note_lender(void* record, const void* lender) noexcept {
  if (!arena.owns(record)) return;
  Header* header = header_of(record);
  header->lender = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(lender));
  header->lender_version = record_version(lender);
}

bool has_lender(const void* record) noexcept {
  return arena.owns(record) && header_of(const_cast<void*>(record))->lender != 0;
}

bool lender_stands(const void* record) noexcept {
  if (!has_lender(record)) return true;
  const Header* header = header_of(const_cast<void*>(record));
  const auto* lender = reinterpret_cast<const void*>(std::uintptr_t{header->lender});
  return header->lender_version == record_version(lender);
}
