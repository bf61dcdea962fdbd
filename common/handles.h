// Guards for what Windows hands out: each closes what it holds with its one closing call.
//
// A guard belongs to one scope and neither copies nor moves. It never closes the empty value of its
// kind, which is not the same for all: CreateFileW and FindFirstFileA fail with
// INVALID_HANDLE_VALUE, the calls that make kernel objects fail with null.
#pragma once

#include <windows.h>

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
