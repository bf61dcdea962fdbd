// The part of the registry below HKEY_LOCAL_MACHINE that the service reads.
//
// Keys and values are named ignoring case; subkeys are enumerated sorted by name, as Windows keeps
// them. Values are raw bytes, so that an unterminated or wrongly typed one can be stored, too.
#pragma once

#include <windows.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine/access.h"
#include "platform/machine/handle_table.h"

namespace platform {

// A value's bytes as they are stored. Whether a string ends in a NUL is up to who wrote it, and
// Windows' reading calls differ in what they make of one that does not.
struct RegistryValue {
  DWORD type = REG_NONE;
  std::vector<BYTE> bytes;
};

// Guarded by the registry's lock. Handles and parents share it.
struct RegistryKeyNode {
  std::u16string name;
  std::map<std::u16string, std::shared_ptr<RegistryKeyNode>> subkeys;  // by upper-case name
  std::map<std::u16string, RegistryValue> values;                      // by upper-case name
  bool deleted = false;
};

// The object behind an HKEY.
class OpenRegistryKey : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::RegistryKey;

  OpenRegistryKey(std::shared_ptr<RegistryKeyNode> opened, const Access& openedFor)
      : node(std::move(opened)), access(openedFor) {}

  const std::shared_ptr<RegistryKeyNode> node;
  const Access access;
};

// Who is logged on stands there, and where the service looks for it. Any thread.
class Registry {
 public:
  // --- For the script of a run; paths are relative to HKEY_LOCAL_MACHINE ---

  // Makes the keys on the way, too; removing one removes all below it.
  void MakeKey(std::u16string_view path);
  void RemoveKey(std::u16string_view path);

  // A REG_SZ with its terminator. Makes the keys that are missing.
  void SetString(std::u16string_view path, std::u16string_view name, std::u16string_view text);
  void SetValue(std::u16string_view path, std::u16string_view name, DWORD type,
                std::vector<BYTE> bytes);

  // --- For the calls of the layer; from is null for HKEY_LOCAL_MACHINE itself ---

  // Null when there is no such key.
  std::shared_ptr<RegistryKeyNode> Find(const std::shared_ptr<RegistryKeyNode>& from,
                                        std::u16string_view path) const;

  // Asked on each use of a handle: Windows refuses a deleted key with an error of its own, not as
  // missing.
  bool IsDeleted(const RegistryKeyNode& key) const;
  // As they were spelled when they were made.
  std::vector<std::u16string> SubkeyNames(const RegistryKeyNode& key) const;

  // False when the key has no such value.
  bool Read(const RegistryKeyNode& key, std::u16string_view name, RegistryValue& value) const;

 private:
  std::shared_ptr<RegistryKeyNode> Walk(std::shared_ptr<RegistryKeyNode> key,
                                        std::u16string_view path, bool make) const;

  mutable std::mutex lock_;
  const std::shared_ptr<RegistryKeyNode> root_ = std::make_shared<RegistryKeyNode>();
};

}  // namespace platform
