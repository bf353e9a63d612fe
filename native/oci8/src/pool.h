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
#include <mutex>
#include <new>
#include <utility>

#include "latch.h"

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
    return slot != nullptr && slot->live.load(std::memory_order_acquire) ? handle_in(slot)
                                                                         : nullptr;
  }

  /// A new handle. Raises std::bad_alloc, and what T's constructor raises.
  template <class... Arguments>
  T* make(Arguments&&... arguments) {
    Slot* slot = take();
    try {
      T* handle = new (slot->storage) T(std::forward<Arguments>(arguments)...);
      slot->live.store(true, std::memory_order_release);
      return handle;
    } catch (...) {
      give_back(slot);
      throw;
    }
  }

  /// Hides the handle from find; true for one caller only when several free it at once.
  bool retire(T* handle) noexcept {
    return slot_of(handle)->live.exchange(false, std::memory_order_acq_rel);
  }

  /// Destroys a retired handle.
  void destroy(T* handle) noexcept {
    handle->~T();
    give_back(slot_of(handle));
  }

 private:
  // The storage stands first, so that a handle and its slot have one address; slot_of() depends on
  // it.
  struct Slot {
    alignas(T) std::byte storage[sizeof(T)];
    std::atomic<bool> live{false};
    Slot* next = nullptr;
  };
  static_assert(alignof(Slot) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

  // Slots are made when they are first taken: the rest of a slab is memory that was never touched.
  struct Slab {
    std::atomic<Slot*> begin{nullptr};
    std::atomic<Slot*> end{nullptr};  // of the slots that are made
  };

  // Slab k has kFirstSlab << k slots: growth stays cheap, and find looks at few slabs.
  static constexpr size_t kFirstSlab = 32;
  // Some 500 million slots in all: memory ends long before the table of slabs does.
  static constexpr size_t kSlabs = 24;

  static T* handle_in(Slot* slot) { return std::launder(reinterpret_cast<T*>(slot->storage)); }
  static Slot* slot_of(T* handle) { return reinterpret_cast<Slot*>(handle); }

  // Without a lock, as every call comes through here: slabs only ever appear, and the distance from
  // a slab's start is unsigned, so that one comparison rules out addresses before and behind it.
  Slot* slot_at(const void* address) const noexcept {
    const auto wanted = reinterpret_cast<uintptr_t>(address);
    for (const Slab& slab : slabs_) {
      Slot* begin = slab.begin.load(std::memory_order_acquire);
      if (begin == nullptr) return nullptr;
      const auto start = reinterpret_cast<uintptr_t>(begin);
      const uintptr_t distance = wanted - start;
      if (distance <
          reinterpret_cast<uintptr_t>(slab.end.load(std::memory_order_acquire)) - start) {
        auto* slot = static_cast<Slot*>(const_cast<void*>(address));
        return distance % sizeof(Slot) == 0 ? slot : nullptr;
      }
    }
    return nullptr;
  }

  Slot* take() {
    const std::lock_guard lock(latch_);
    if (unmade_ > 0 || free_head_ == nullptr) return make_slot();
    Slot* slot = free_head_;
    free_head_ = slot->next;
    return slot;
  }

  void give_back(Slot* slot) noexcept {
    const std::lock_guard lock(latch_);
    slot->next = nullptr;
    (free_head_ == nullptr ? free_head_ : free_tail_->next) = slot;
    free_tail_ = slot;
  }

  Slot* make_slot() {
    if (unmade_ == 0) add_slab();
    std::atomic<Slot*>& end = slabs_[slab_count_ - 1].end;
    Slot* made = new (end.load(std::memory_order_relaxed)) Slot;
    // Published only when it is complete: find() reads slots without the lock.
    end.store(made + 1, std::memory_order_release);
    --unmade_;
    return made;
  }

  void add_slab() {
    if (slab_count_ == kSlabs) throw std::bad_alloc();
    const size_t count = kFirstSlab << slab_count_;
    auto* memory = static_cast<Slot*>(::operator new(count * sizeof(Slot)));
    Slab& slab = slabs_[slab_count_++];
    slab.end.store(memory, std::memory_order_relaxed);
    slab.begin.store(memory, std::memory_order_release);
    unmade_ = count;
  }

  std::array<Slab, kSlabs> slabs_{};
  Latch latch_;  // guards what follows
  size_t slab_count_ = 0;
  size_t unmade_ = 0;  // slots of the last slab
  Slot* free_head_ = nullptr;
  Slot* free_tail_ = nullptr;
};

/// The pool of a kind. Initialised at compile time and never destroyed: callers make environments
/// from their own static initialisers, and may still hold handles while the process ends.
template <class T>
inline constinit HandlePool<T> pool;

}  // namespace oci8

#endif
