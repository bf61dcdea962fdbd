#include "platform/machine/registry.h"

#include <algorithm>
#include <cstring>

#include "platform/machine/text.h"

namespace platform {

namespace {

// A handle to a deleted key stays open on Windows, and every use of it fails. So the node is marked
// and lives until the last handle is closed.
void MarkDeleted(RegistryKeyNode& key) {
  key.deleted = true;
  for (const auto& [name, subkey] : key.subkeys) {
    MarkDeleted(*subkey);
  }
}

}  // namespace

// An empty path is the key itself, as RegOpenKeyExW has it.
std::shared_ptr<RegistryKeyNode> Registry::Walk(std::shared_ptr<RegistryKeyNode> key,
                                                std::u16string_view path, bool make) const {
  while (key != nullptr && !path.empty()) {
    const std::size_t end = std::min(path.find(u'\\'), path.size());
    const std::u16string_view name = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    std::shared_ptr<RegistryKeyNode> next;
    const auto found = key->subkeys.find(UpperCase(name));
    if (found != key->subkeys.end()) {
      next = found->second;
    } else if (make) {
      next = std::make_shared<RegistryKeyNode>();
      next->name = name;
      key->subkeys[UpperCase(name)] = next;
    }
    key = next;
  }
  return key;
}

void Registry::MakeKey(std::u16string_view path) {
  const std::scoped_lock lock(lock_);
  Walk(root_, path, true);
}

void Registry::RemoveKey(std::u16string_view path) {
  const std::scoped_lock lock(lock_);
  const std::size_t nameAt = path.rfind(u'\\') + 1;
  const auto parent = Walk(root_, path.substr(0, nameAt == 0 ? 0 : nameAt - 1), false);
  const auto key = Walk(root_, path, false);
  if (parent != nullptr && key != nullptr) {
    MarkDeleted(*key);
    parent->subkeys.erase(UpperCase(path.substr(nameAt)));
  }
}

// The terminator is part of the value: Windows stores what it is given and adds none.
void Registry::SetString(std::u16string_view path, std::u16string_view name,
                         std::u16string_view text) {
  const std::u16string terminated(text);
  std::vector<BYTE> bytes((terminated.size() + 1) * sizeof(WCHAR));
  std::memcpy(bytes.data(), terminated.c_str(), bytes.size());
  SetValue(path, name, REG_SZ, std::move(bytes));
}

void Registry::SetValue(std::u16string_view path, std::u16string_view name, DWORD type,
                        std::vector<BYTE> bytes) {
  const std::scoped_lock lock(lock_);
  Walk(root_, path, true)->values[UpperCase(name)] = {type, std::move(bytes)};
}

std::shared_ptr<RegistryKeyNode> Registry::Find(const std::shared_ptr<RegistryKeyNode>& from,
                                                std::u16string_view path) const {
  const std::scoped_lock lock(lock_);
  return Walk(from == nullptr ? root_ : from, path, false);
}

bool Registry::IsDeleted(const RegistryKeyNode& key) const {
  const std::scoped_lock lock(lock_);
  return key.deleted;
}

// The map is sorted by the upper-case name. That is the order in which Windows enumerates; a new
// key moves the index of those behind it.
std::vector<std::u16string> Registry::SubkeyNames(const RegistryKeyNode& key) const {
  const std::scoped_lock lock(lock_);
  std::vector<std::u16string> names;
  for (const auto& [sortName, subkey] : key.subkeys) {
    names.push_back(subkey->name);
  }
  return names;
}

bool Registry::Read(const RegistryKeyNode& key, std::u16string_view name,
                    RegistryValue& value) const {
  const std::scoped_lock lock(lock_);
  const auto found = key.values.find(UpperCase(name));
  if (found == key.values.end()) {
    return false;
  }
  value = found->second;
  return true;
}

}  // namespace platform
