// Every handle of the machine, of whatever type Windows gives it: opened once, closed once.
//
// The table reports a second close, a use after the close and a handle of another kind as faults.
// Values that Windows itself uses for "no handle" (null, INVALID_HANDLE_VALUE) are no fault: the
// call just fails with ERROR_INVALID_HANDLE, as it does there. Handle values are never given out
// twice unless RecycleValues asks for it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/machine/fault_log.h"

namespace platform {

class SimThread;

enum class HandleKind {
  Event,
  Mutex,
  Thread,
  File,
  Search,
  WinUsb,
  Process,
  Token,
  RegistryKey,
  Notification,
  ServiceStatus,
  PreparsedData,
  EnvironmentBlock,
};

const char* NameOf(HandleKind kind);

// What a handle stands for. Events, mutexes and threads can be waited for.
class KernelObject {
 public:
  virtual ~KernelObject() = default;

  // Takes the object for the thread when it is signalled: consumes what a wait consumes and returns
  // true, else leaves all as it is. Called with the scheduler's lock held.
  virtual bool TryTake(SimThread& waiter);

  virtual bool isWaitable() const { return false; }

  // Whether what was taken last had an owner that had ended. With the scheduler's lock held.
  virtual bool wasAbandoned() const { return false; }
};

struct OpenHandle {
  void* value;
  HandleKind kind;
};

class HandleTable {
 public:
  explicit HandleTable(FaultLog& faults) : faults_(faults) {}

  // The new handle, of the kind that the object's class names.
  template <class T>
  void* Open(std::shared_ptr<T> object) {
    return Add(T::Kind, std::move(object));
  }

  // The object behind an open handle of that kind; null otherwise, with a fault unless the value is
  // null or INVALID_HANDLE_VALUE. call names the caller in the fault.
  std::shared_ptr<KernelObject> Find(const void* handle, HandleKind kind, const char* call);

  template <class T>
  std::shared_ptr<T> Get(const void* handle, const char* call) {
    return std::static_pointer_cast<T>(Find(handle, T::Kind, call));
  }

  // Any object that a thread can wait for.
  std::shared_ptr<KernelObject> GetWaitable(const void* handle, const char* call);

  // False when there was nothing to close, with a fault as for Find.
  bool Close(const void* handle, HandleKind kind, const char* call);

  // CloseHandle's half: closes a handle of any kind that CloseHandle closes.
  bool CloseAny(const void* handle, const char* call);

  std::vector<OpenHandle> OpenHandles() const;
  std::size_t OpenCount(HandleKind kind) const;
  std::uint64_t OpenedEver(HandleKind kind) const;

  // Gives out the value closed last again, as a busy system would.
  void RecycleValues(bool recycle);

 private:
  struct Entry {
    HandleKind kind;
    std::shared_ptr<KernelObject> object;  // null once closed
  };

  void* Add(HandleKind kind, std::shared_ptr<KernelObject> object);
  Entry* FindOpen(const void* handle, const char* call);
  Entry* FindOfKind(const void* handle, HandleKind kind, const char* call);
  void CloseEntry(const void* handle, Entry& entry);

  FaultLog& faults_;
  mutable std::mutex lock_;
  std::map<std::uintptr_t, Entry> entries_;
  std::vector<std::uintptr_t> freeValues_;
  std::map<HandleKind, std::uint64_t> opened_;
  std::uintptr_t nextValue_ = 0x40;
  bool recycle_ = false;
};

}  // namespace platform
