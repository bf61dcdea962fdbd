// How every call of the layer begins, refuses and fails.
//
// A call makes one of these objects first of all. Making it enters the call gate, where the thread
// may be held up or handed over; what the object says afterwards never blocks. Which class a call
// takes depends on how Windows reports its errors.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "platform/machine/machine.h"
#include "platform/winapi/argument_text.h"

namespace platform {

// For a call that has a way of its own to report errors. A call makes it as a constant on its
// stack, so it never outlives the call and one thread alone uses it.
class PlatformCall {
 public:
  // Takes the call's name for its faults, and its turn: other threads may run before it returns.
  explicit PlatformCall(Call call)
      : name_(NameOf(call)),
        orderedError_(TheMachine().gate.Enter(call)),
        error_(orderedError_),
        isTraced_(TheMachine().gate.isTraced()) {}

  // Tells those who trace the calls how it went. A call in whose midst the process ends tells
  // nothing.
  ~PlatformCall() {
    if (isTraced_) {
      TheMachine().gate.Finish({name_, arguments_, error_});
    }
  }
  PlatformCall(const PlatformCall&) = delete;
  PlatformCall& operator=(const PlatformCall&) = delete;

  // The arguments, for those who trace the calls. May be called again for what is known later; the
  // texts stand in the order of the calls, with commas between them. Does nothing when nobody
  // traces.
  template <class... Arguments>
  void Note(const Arguments&... arguments) const {
    if (isTraced_) {
      ((arguments_ += (arguments_.empty() ? "" : ", ") + ArgumentText(arguments)), ...);
    }
  }

  // Whether a test ordered that this use of the call fails; with that error then.
  bool fails() const { return orderedError_ != 0; }
  DWORD orderedError() const { return orderedError_; }

  // A mistake of the caller: it fails the test.
  void AddFault(const std::string& what) const {
    TheMachine().faults.Add(std::string(name_) + ": " + what);
  }

  // A request that Windows may well accept and the layer does not model. A fault, and whatever the
  // call's way to report errors, the last error is ERROR_NOT_SUPPORTED. what ends in "is" or "are".
  void NoteRefusal(const std::string& what) const {
    AddFault(what + " not modelled");
    SetLastError(ERROR_NOT_SUPPORTED);
    NoteError(ERROR_NOT_SUPPORTED);
  }

  // The object behind a handle, which stays alive while the pointer is held even when another
  // thread closes the handle. Null when there is none of that kind (see HandleTable::Find).
  template <class T>
  std::shared_ptr<T> Get(const void* handle) const {
    return TheMachine().handles.Get<T>(handle, name_);
  }

  // Closes the handle. The object lives on while another thread still holds a pointer to it. False
  // when there was nothing of that kind to close.
  template <class T>
  bool Close(const void* handle) const {
    return TheMachine().handles.Close(handle, T::Kind, name_);
  }

  // As Windows spells it.
  const char* name() const { return name_; }

 protected:
  // For the trace: what the call fails with; 0 when it does not. Does not set the last error.
  void NoteError(DWORD error) const { error_ = error; }

 private:
  const char* const name_;
  const DWORD orderedError_;

  // What the destructor tells: the ordered error until the call says otherwise.
  mutable DWORD error_;
  const bool isTraced_;
  mutable std::string arguments_;
};

// For a call that sets the last error and returns a value that says no more than "failed": FALSE,
// null, or another one given here, such as INVALID_HANDLE_VALUE. Nearly all calls are of this kind.
// The object does nothing about the last error of a call that succeeds.
template <class Result>
class LastErrorCall : public PlatformCall {
 public:
  explicit LastErrorCall(Call call, Result failed = {}) : PlatformCall(call), failed_(failed) {}

  // Sets the last error and returns the value that stands for failure: for the error that the call
  // itself finds, and for the one that was ordered.
  Result Fail(DWORD error) const {
    SetLastError(error);
    NoteError(error);
    return failed_;
  }
  Result Fail() const { return Fail(orderedError()); }

  // What the layer does not model: see NoteRefusal.
  Result Refuse(const std::string& what) const {
    NoteRefusal(what);
    return failed_;
  }

 private:
  const Result failed_;
};

// For a call that returns its error and leaves the last error alone: the registry returns the codes
// that others leave as the last error, the Configuration Manager returns CONFIGRET numbers. 0 is
// success in both.
template <class Status>
class StatusCall : public PlatformCall {
 public:
  // notSupported is what a refusal returns.
  StatusCall(Call call, Status notSupported) : PlatformCall(call), notSupported_(notSupported) {}

  // What was ordered, in the call's own numbers.
  Status Fail() const { return static_cast<Status>(orderedError()); }

  // What the call returns, 0 for success. Every way out but Fail and Refuse goes through it, for
  // the trace.
  Status Return(Status status) const {
    NoteError(static_cast<DWORD>(status));
    return status;
  }

  // What the layer does not model: see NoteRefusal. Returns the value that the call was made with.
  Status Refuse(const std::string& what) const {
    NoteRefusal(what);
    return notSupported_;
  }

 private:
  const Status notSupported_;
};

// For a call that Windows carries out whenever its arguments are right. The service could do
// nothing about a failure, so an order to fail is a mistake of the test: a fault, and the call goes
// on.
class SureCall : public LastErrorCall<BOOL> {
 public:
  // Fail still tells of wrong arguments, such as a handle that is none.
  explicit SureCall(Call call) : LastErrorCall(call) {
    if (fails()) {
      AddFault("its failure is not modelled");
    }
  }
};

}  // namespace platform
