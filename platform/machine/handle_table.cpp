#include "platform/machine/handle_table.h"

#include <cstdio>

namespace platform {

namespace {

bool IsNoHandle(const void* handle) {
  const auto value = reinterpret_cast<std::uintptr_t>(handle);
  return value == 0 || value == ~std::uintptr_t{0};
}

bool IsClosedByCloseHandle(HandleKind kind) {
  switch (kind) {
    case HandleKind::Event:
    case HandleKind::Mutex:
    case HandleKind::Thread:
    case HandleKind::File:
    case HandleKind::Process:
    case HandleKind::Token:
      return true;
    default:
      return false;
  }
}

std::string Describe(const char* call, const void* handle, const std::string& what) {
  char value[32];
  std::snprintf(value, sizeof(value), "0x%zx", reinterpret_cast<std::size_t>(handle));
  return std::string(call) + ": handle " + value + " " + what;
}

}  // namespace

const char* NameOf(HandleKind kind) {
  static constexpr const char* Names[] = {
      "event",          "mutex",          "thread",     "file",         "search",
      "WinUSB",         "process",        "token",      "registry key", "notification",
      "service status", "preparsed data", "environment"};
  return Names[static_cast<int>(kind)];
}

bool KernelObject::TryTake(SimThread&) {
  return false;
}

void* HandleTable::Add(HandleKind kind, std::shared_ptr<KernelObject> object) {
  const std::scoped_lock lock(lock_);
  std::uintptr_t value = nextValue_;
  if (recycle_ && !freeValues_.empty()) {
    value = freeValues_.back();
    freeValues_.pop_back();
  } else {
    nextValue_ += 4;
  }
  entries_[value] = Entry{kind, std::move(object)};
  ++opened_[kind];
  return reinterpret_cast<void*>(value);
}

HandleTable::Entry* HandleTable::FindOpen(const void* handle, const char* call) {
  if (IsNoHandle(handle)) {
    return nullptr;
  }
  const auto found = entries_.find(reinterpret_cast<std::uintptr_t>(handle));
  if (found == entries_.end()) {
    faults_.Add(Describe(call, handle, "was never opened"));
    return nullptr;
  }
  if (found->second.object == nullptr) {
    faults_.Add(
        Describe(call, handle, std::string("is closed (") + NameOf(found->second.kind) + ")"));
    return nullptr;
  }
  return &found->second;
}

HandleTable::Entry* HandleTable::FindOfKind(const void* handle, HandleKind kind, const char* call) {
  Entry* const entry = FindOpen(handle, call);
  if (entry != nullptr && entry->kind != kind) {
    faults_.Add(Describe(
        call, handle,
        std::string("is a ") + NameOf(entry->kind) + " handle, not a " + NameOf(kind) + " handle"));
    return nullptr;
  }
  return entry;
}

std::shared_ptr<KernelObject> HandleTable::Find(const void* handle, HandleKind kind,
                                                const char* call) {
  const std::scoped_lock lock(lock_);
  Entry* const entry = FindOfKind(handle, kind, call);
  return entry == nullptr ? nullptr : entry->object;
}

std::shared_ptr<KernelObject> HandleTable::GetWaitable(const void* handle, const char* call) {
  const std::scoped_lock lock(lock_);
  Entry* const entry = FindOpen(handle, call);
  if (entry == nullptr) {
    return nullptr;
  }
  if (!entry->object->isWaitable()) {
    faults_.Add(Describe(call, handle, "cannot be waited for"));
    return nullptr;
  }
  return entry->object;
}

bool HandleTable::Close(const void* handle, HandleKind kind, const char* call) {
  const std::scoped_lock lock(lock_);
  Entry* const entry = FindOfKind(handle, kind, call);
  if (entry == nullptr) {
    return false;
  }
  CloseEntry(handle, *entry);
  return true;
}

bool HandleTable::CloseAny(const void* handle, const char* call) {
  const std::scoped_lock lock(lock_);
  Entry* const entry = FindOpen(handle, call);
  if (entry == nullptr) {
    return false;
  }
  if (!IsClosedByCloseHandle(entry->kind)) {
    faults_.Add(Describe(call, handle, std::string("is a ") + NameOf(entry->kind) + " handle"));
    return false;
  }
  CloseEntry(handle, *entry);
  return true;
}

void HandleTable::CloseEntry(const void* handle, Entry& entry) {
  entry.object = nullptr;
  if (recycle_) {
    freeValues_.push_back(reinterpret_cast<std::uintptr_t>(handle));
  }
}

std::vector<OpenHandle> HandleTable::OpenHandles() const {
  const std::scoped_lock lock(lock_);
  std::vector<OpenHandle> open;
  for (const auto& [value, entry] : entries_) {
    if (entry.object != nullptr) {
      open.push_back({reinterpret_cast<void*>(value), entry.kind});
    }
  }
  return open;
}

std::size_t HandleTable::OpenCount(HandleKind kind) const {
  const std::scoped_lock lock(lock_);
  std::size_t count = 0;
  for (const auto& [value, entry] : entries_) {
    count += (entry.object != nullptr && entry.kind == kind) ? 1 : 0;
  }
  return count;
}

std::uint64_t HandleTable::OpenedEver(HandleKind kind) const {
  const std::scoped_lock lock(lock_);
  const auto found = opened_.find(kind);
  return found == opened_.end() ? 0 : found->second;
}

void HandleTable::RecycleValues(bool recycle) {
  const std::scoped_lock lock(lock_);
  recycle_ = recycle;
}

}  // namespace platform
