// An array that grows, and for which a refused allocation is a result and not the end of the
// process.
//
// For plain records that can be copied byte by byte. What the records point to is not the list's.
// Positions and sizes count records.
#pragma once

#include <cstddef>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include "common/types.h"

template <class T>
class GrowableList {
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);
  static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

 public:
  constexpr GrowableList() = default;
  GrowableList(const GrowableList&) = delete;
  GrowableList& operator=(const GrowableList&) = delete;
  ~GrowableList() { ::operator delete(items_); }

  // Puts a copy at position and moves the records behind it up by one. False, and the list as
  // before, when the position is beyond the end or memory is refused.
  bool Insert(u32 position, T value) {
    if (position > size_ || !MakeRoomForOne()) {
      return false;
    }
    T* const place = items_ + position;
    if (position != size_) {
      std::memmove(static_cast<void*>(place + 1), place, std::size_t{size_ - position} * sizeof(T));
    }
    std::memcpy(static_cast<void*>(place), &value, sizeof(T));
    ++size_;
    return true;
  }

  void Swap(GrowableList& other) {
    std::swap(items_, other.items_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

  u32 size() const { return size_; }
  T& operator[](u32 position) { return items_[position]; }
  const T& operator[](u32 position) const { return items_[position]; }

 private:
  static constexpr u32 FirstCapacity = 4;
  static constexpr u32 LargestCapacity =
      static_cast<u32>(std::numeric_limits<i32>::max() / sizeof(T));

  bool MakeRoomForOne() {
    if (size_ < capacity_) {
      return true;
    }
    if (capacity_ > LargestCapacity / 2) {
      return false;
    }
    // Below the largest capacity neither the count nor its bytes can overflow.
    const u32 capacity = capacity_ == 0 ? FirstCapacity : capacity_ * 2;
    void* const memory = ::operator new (std::size_t{capacity} * sizeof(T), std::nothrow);
    if (memory == nullptr) {
      return false;
    }
    if (size_ != 0) {
      std::memcpy(memory, items_, std::size_t{size_} * sizeof(T));
    }
    ::operator delete(items_);
    items_ = static_cast<T*>(memory);
    capacity_ = capacity;
    return true;
  }

  T* items_ = nullptr;
  u32 size_ = 0;
  u32 capacity_ = 0;
};
