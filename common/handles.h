// Guards for what Windows hands out: each closes what it holds with its one closing call.
//
// A guard belongs to one scope and neither copies nor moves. It never closes the empty value of its
// kind, which is not the same for all: CreateFileW and FindFirstFileA fail with
// INVALID_HANDLE_VALUE, the calls that make kernel objects fail with null.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

template <class Kind>
class HandleGuard {
 public:
  using Type = typename Kind::Type;

  HandleGuard() : handle_(Kind::Empty()) {}
  explicit HandleGuard(Type handle) : handle_(handle) {}
  HandleGuard(const HandleGuard&) = delete;
  HandleGuard& operator=(const HandleGuard&) = delete;
  ~HandleGuard() { Close(); }

  Type get() const { return handle_; }
  bool valid() const { return handle_ != Kind::Empty(); }

  // Closes what is held now. A second call does nothing.
  void Close() {
    if (valid()) {
      Kind::CloseNow(handle_);
      handle_ = Kind::Empty();
    }
  }

  // Closes what is held and holds the given handle from now on.
  void Reset(Type handle) {
    Close();
    handle_ = handle;
  }

  // Gives the handle to the caller, who closes it; the guard is empty afterwards.
  Type Release() {
    const Type handle = handle_;
    handle_ = Kind::Empty();
    return handle;
  }

  // Closes what is held and returns the place into which a Windows call stores a handle. The call
  // may leave it alone when it fails.
  Type* Receive() {
    Close();
    return &handle_;
  }

 private:
  Type handle_;
};

struct FileHandleKind {
  using Type = HANDLE;
  static Type Empty() { return INVALID_HANDLE_VALUE; }
  static void CloseNow(Type handle) { CloseHandle(handle); }
};

struct KernelHandleKind {
  using Type = HANDLE;
  static Type Empty() { return nullptr; }
  static void CloseNow(Type handle) { CloseHandle(handle); }
};

struct FindHandleKind {
  using Type = HANDLE;
  static Type Empty() { return INVALID_HANDLE_VALUE; }
  static void CloseNow(Type handle) { FindClose(handle); }
};

struct RegistryKeyKind {
  using Type = HKEY;
  static Type Empty() { return nullptr; }
  static void CloseNow(Type key) { RegCloseKey(key); }
};

// From CreateFileW.
using FileHandle = HandleGuard<FileHandleKind>;

// Processes, threads, tokens, events, mutexes.
using KernelHandle = HandleGuard<KernelHandleKind>;

// From FindFirstFileA.
using FindHandle = HandleGuard<FindHandleKind>;

// From RegOpenKeyExW.
using RegistryKey = HandleGuard<RegistryKeyKind>;

// Zero-filled memory for a number of plain elements, from the process heap. Check valid() before
// use: the size often comes from a device or from a list that somebody else makes.
template <class Element>
class HeapBuffer {
 public:
  HeapBuffer() : elements_(nullptr), count_(0) {}
  explicit HeapBuffer(std::size_t count) : HeapBuffer() { Allocate(count); }
  HeapBuffer(const HeapBuffer&) = delete;
  HeapBuffer& operator=(const HeapBuffer&) = delete;
  ~HeapBuffer() { Free(); }

  // Frees what is held and asks for memory anew. False when it is refused; the buffer is then
  // empty.
  bool Allocate(std::size_t count) {
    Free();
    if (count > SIZE_MAX / sizeof(Element)) {
      return false;
    }
    elements_ = static_cast<Element*>(
        HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, count * sizeof(Element)));
    count_ = elements_ != nullptr ? count : 0;
    return elements_ != nullptr;
  }

  void Free() {
    if (elements_ != nullptr) {
      HeapFree(GetProcessHeap(), 0, elements_);
    }
    elements_ = nullptr;
    count_ = 0;
  }

  bool valid() const { return elements_ != nullptr; }
  Element* data() { return elements_; }
  const Element* data() const { return elements_; }
  std::size_t count() const { return count_; }
  Element& operator[](std::size_t index) { return elements_[index]; }
  const Element& operator[](std::size_t index) const { return elements_[index]; }

 private:
  Element* elements_;
  std::size_t count_;
};
