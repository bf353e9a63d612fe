// Where handles live. Callers hand in raw addresses, also of handles that are freed, of another
// kind, or that never were handles; an address is judged by where it lies, and only memory that
// belongs to a pool is read.
// One pool per kind makes the kind of an address a matter of where it lies. That is the check which
// the interface's untyped pointers need: OCI_INVALID_HANDLE instead of a crash for whatever a
// caller passes.
#ifndef OCI8_POOL_H
#define OCI8_POOL_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

namespace oci8 {

/// All handles of one kind, in slots of slabs that are never given back: a stale address always
/// points at a slot of its own kind, whose mark tells that it is free. Slots are reused in the
/// order in which they were freed, so that a stale address stays detectable for long. Any thread.
template <class T>
class HandlePool {
 public:
  /// The live handle at `address`; null for anything else.
  T* find(const void* address) const noexcept {
    Slot* slot = slot_at(address);
    return slot != nullptr && live(slot).load(std::memory_order_acquire) ? handle_in(slot)
                                                                         : nullptr;
  }

  /// A new handle. Raises std::bad_alloc, and what T's constructor raises.
  template <class... Arguments>
  T* make(Arguments&&... arguments) {
    Slot* slot = take();
    try {
      T* handle = new (slot->storage) T(std::forward<Arguments>(arguments)...);
      live(slot).store(true, std::memory_order_release);
      return handle;
    } catch (...) {
      give_back(slot);
      throw;
    }
  }

  /// Hides the handle from find; true for one caller only when several free it at once.
  bool retire(T* handle) noexcept {
    return live(slot_of(handle)).exchange(false, std::memory_order_acq_rel);
  }

  /// Destroys a retired handle.
  void destroy(T* handle) noexcept {
    handle->~T();
    give_back(slot_of(handle));
  }

 private:
  // The storage stands first, so that a handle and its slot have one address; slot_of() depends on
  // it. All zeros are a free slot: one that was never used is memory that was never touched.
  struct Slot {
    alignas(T) std::byte storage[sizeof(T)];
    bool live;  // read and written through live() only
    Slot* next;
  };
  static_assert(alignof(Slot) <= alignof(std::max_align_t));

  // Slab k has kFirstSlab << k slots: growth stays cheap, and find looks at few slabs.
  static constexpr size_t kFirstSlab = 32;
  // Some 500 million slots in all: memory ends long before the table of slabs does.
  static constexpr size_t kSlabs = 24;

  static std::atomic_ref<bool> live(Slot* slot) { return std::atomic_ref(slot->live); }
  static T* handle_in(Slot* slot) { return std::launder(reinterpret_cast<T*>(slot->storage)); }
  static Slot* slot_of(T* handle) { return reinterpret_cast<Slot*>(handle); }

  // Without a lock, as every call comes through here: slabs only ever appear, and the distance from
  // a slab's start is unsigned, so that one comparison rules out addresses before and behind it.
  Slot* slot_at(const void* address) const noexcept {
    const auto wanted = reinterpret_cast<uintptr_t>(address);
    for (size_t k = 0; k < kSlabs; ++k) {
      Slot* slab = slabs_[k].load(std::memory_order_acquire);
      if (slab == nullptr) return nullptr;
      const uintptr_t distance = wanted - reinterpret_cast<uintptr_t>(slab);
      if (distance < (kFirstSlab << k) * sizeof(Slot)) {
        return distance % sizeof(Slot) == 0 ? slab + distance / sizeof(Slot) : nullptr;
      }
    }
    return nullptr;
  }

  Slot* take() {
    const std::lock_guard lock(mutex_);
    if (unused_ == unused_end_ && free_head_ == nullptr) add_slab();
    if (unused_ != unused_end_) return unused_++;
    Slot* slot = free_head_;
    free_head_ = slot->next;
    return slot;
  }

  void give_back(Slot* slot) noexcept {
    const std::lock_guard lock(mutex_);
    slot->next = nullptr;
    (free_head_ == nullptr ? free_head_ : free_tail_->next) = slot;
    free_tail_ = slot;
  }

  void add_slab() {
    if (slab_count_ == kSlabs) throw std::bad_alloc();
    const size_t count = kFirstSlab << slab_count_;
    auto* slab = static_cast<Slot*>(std::calloc(count, sizeof(Slot)));
    if (slab == nullptr) throw std::bad_alloc();
    unused_ = slab;
    unused_end_ = slab + count;
    // find() reads slabs without the lock.
    slabs_[slab_count_++].store(slab, std::memory_order_release);
  }

  std::array<std::atomic<Slot*>, kSlabs> slabs_{};
  std::mutex mutex_;  // guards what follows
  size_t slab_count_ = 0;
  Slot* unused_ = nullptr;  // of the last slab
  Slot* unused_end_ = nullptr;
  Slot* free_head_ = nullptr;
  Slot* free_tail_ = nullptr;
};

/// The pool of a kind. Initialised at compile time and never destroyed: callers make environments
/// from their own static initialisers, and may still hold handles while the process ends.
template <class T>
inline constinit HandlePool<T> pool;

}  // namespace oci8

#endif
