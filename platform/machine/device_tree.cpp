#include "platform/machine/device_tree.h"

#include <algorithm>
#include <utility>

#include "platform/machine/text.h"

namespace platform {

namespace {

// The number of the node that is the root of the tree; the devices follow.
constexpr DEVINST FirstDeviceNode = 2;

constexpr DWORD ReadWriteAccess = GENERIC_READ | GENERIC_WRITE;

// One side of the test for shared access: does an open with this access bear the other's sharing?
bool IsShared(DWORD access, DWORD otherShare) {
  return ((access & GENERIC_READ) == 0 || (otherShare & FILE_SHARE_READ) != 0) &&
         ((access & GENERIC_WRITE) == 0 || (otherShare & FILE_SHARE_WRITE) != 0);
}

bool Conflict(const OpenMode& left, const OpenMode& right) {
  // An open without access, for attributes only, takes no part in sharing.
  if ((left.access & ReadWriteAccess) == 0 || (right.access & ReadWriteAccess) == 0) {
    return false;
  }
  return !IsShared(left.access, right.share) || !IsShared(right.access, left.share);
}

// Full speed: a frame for the setup and status stages, one for each 1024 bytes of data begun.
std::uint64_t TimeOnWireMs(const WINUSB_SETUP_PACKET& setup) {
  return 1 + (std::uint64_t{setup.Length} + 1023) / 1024;
}

}  // namespace

DeviceFile::~DeviceFile() {
  if (inWinUsb) {
    faults_.Add("CloseHandle: the device file was closed before WinUsb_Free");
  }
  const std::scoped_lock lock(target_->lock_);
  std::erase(target_->files_, this);
}

// ---- The script's side ----

// All interfaces are listed before the first of them is announced. A caller that is told of one may
// look for the others at once.
void DeviceTree::Attach(const std::vector<Device>& devices) {
  std::vector<std::u16string> present;
  for (const Device& device : devices) {
    if (IsPresent(device.instanceId)) {
      present.push_back(device.instanceId);
    }
  }
  Detach(present);

  std::vector<std::shared_ptr<AttachedInterface>> arrived;
  {
    const std::scoped_lock lock(lock_);
    for (const Device& device : devices) {
      Slot* slot = FindSlot(device.instanceId);
      if (slot == nullptr) {
        slot = &slots_.emplace_back();
      }
      slot->device = device;
      for (const DeviceInterface& details : device.interfaces) {
        slot->attached.push_back(std::make_shared<AttachedInterface>(details));
        arrived.push_back(slot->attached.back());
      }
    }
  }
  AnnounceAll(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, arrived);
}

// The slot stays as a phantom. A thread that waits for an answer of the device sees it gone in the
// same moment, and before anybody is notified.
void DeviceTree::Detach(const std::vector<std::u16string>& instanceIds) {
  std::vector<std::shared_ptr<AttachedInterface>> left;
  {
    const std::scoped_lock lock(lock_);
    for (const std::u16string& instanceId : instanceIds) {
      if (Slot* const slot = FindSlot(instanceId)) {
        left.insert(left.end(), slot->attached.begin(), slot->attached.end());
        slot->attached.clear();
      }
    }
  }
  scheduler_.Update([&] {
    for (const std::shared_ptr<AttachedInterface>& each : left) {
      each->gone_ = true;
    }
  });
  AnnounceAll(CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, left);
}

bool DeviceTree::IsPresent(const std::u16string& instanceId) const {
  const std::optional<DeviceNode> node = FindNode(instanceId);
  return node.has_value() && node->isPresent;
}

void DeviceTree::Enable(const std::u16string& path) {
  const std::shared_ptr<AttachedInterface> target = FindAttached(path);
  if (target != nullptr && !target->enabled_.exchange(true)) {
    AnnounceAll(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, {target});
  }
}

void DeviceTree::AnnounceAll(CM_NOTIFY_ACTION action,
                             const std::vector<std::shared_ptr<AttachedInterface>>& interfaces) {
  for (const std::shared_ptr<AttachedInterface>& each : interfaces) {
    if (each->isEnabled()) {
      notifications_.Announce({action, each->details_.classGuid, each->details_.path});
    }
  }
}

// ---- The calls' side ----

// Windows compares instance ids ignoring case.
DeviceTree::Slot* DeviceTree::FindSlot(const std::u16string& instanceId) {
  const auto found = std::find_if(slots_.begin(), slots_.end(), [&](const Slot& slot) {
    return EqualsIgnoringCase(slot.device.instanceId, instanceId);
  });
  return found == slots_.end() ? nullptr : &*found;
}

// A phantom's interfaces are known too, and are listed when somebody asks for all devices.
std::vector<std::u16string> DeviceTree::ListInterfaces(const GUID& classGuid,
                                                       bool presentOnly) const {
  const std::scoped_lock lock(lock_);
  std::vector<std::u16string> paths;
  for (const Slot& slot : slots_) {
    for (std::size_t i = 0; i < slot.device.interfaces.size(); ++i) {
      const DeviceInterface& each = slot.device.interfaces[i];
      const bool isPresent = !slot.attached.empty() && slot.attached[i]->isEnabled();
      if (each.classGuid == classGuid && (isPresent || !presentOnly)) {
        paths.push_back(each.path);
      }
    }
  }
  return paths;
}

// Node numbers never change while the machine is on: slots are added and never removed.
DeviceNode DeviceTree::DescribeSlot(std::size_t index) const {
  const Slot& slot = slots_[index];
  return {FirstDeviceNode + static_cast<DEVINST>(index), !slot.attached.empty(),
          slot.device.instanceIdReadable, slot.device.instanceId, slot.device.description};
}

std::optional<DeviceNode> DeviceTree::FindNodeOfInterface(const std::u16string& path) const {
  const std::scoped_lock lock(lock_);
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    for (const DeviceInterface& each : slots_[i].device.interfaces) {
      if (EqualsIgnoringCase(each.path, path)) {
        return DescribeSlot(i);
      }
    }
  }
  return std::nullopt;
}

std::optional<DeviceNode> DeviceTree::FindNode(const std::u16string& instanceId) const {
  const std::scoped_lock lock(lock_);
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    if (EqualsIgnoringCase(slots_[i].device.instanceId, instanceId)) {
      return DescribeSlot(i);
    }
  }
  return std::nullopt;
}

std::optional<DeviceNode> DeviceTree::FindNode(DEVINST number) const {
  const std::scoped_lock lock(lock_);
  if (number < FirstDeviceNode || number - FirstDeviceNode >= slots_.size()) {
    return std::nullopt;
  }
  return DescribeSlot(number - FirstDeviceNode);
}

std::shared_ptr<AttachedInterface> DeviceTree::FindAttached(const std::u16string& path) const {
  const std::scoped_lock lock(lock_);
  for (const Slot& slot : slots_) {
    for (const std::shared_ptr<AttachedInterface>& each : slot.attached) {
      if (EqualsIgnoringCase(each->details_.path, path)) {
        return each;
      }
    }
  }
  return nullptr;
}

// Asks in turn whether it is there, what its driver says, and last the sharing with those who have
// it open.
std::shared_ptr<DeviceFile> DeviceTree::OpenPath(const std::u16string& path, const OpenMode& mode,
                                                 DWORD& error) {
  const std::shared_ptr<AttachedInterface> target = FindAttached(path);
  if (target == nullptr || !target->isEnabled()) {
    error = path.empty() ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND;
    return nullptr;
  }
  const DeviceInterface& details = target->details_;
  error = details.openError;
  if (error == 0 && (mode.access & ReadWriteAccess) != 0) {
    error = details.readWriteError;
  }
  if (error != 0) {
    return nullptr;
  }

  const auto file = std::make_shared<DeviceFile>(target, mode, faults_);
  const std::scoped_lock lock(target->lock_);
  if (details.usb != nullptr && !target->files_.empty()) {
    // WinUSB's driver lets one file be open at a time.
    error = ERROR_ACCESS_DENIED;
    return nullptr;
  }
  for (const DeviceFile* const other : target->files_) {
    if (Conflict(other->mode(), file->mode())) {
      error = ERROR_SHARING_VIOLATION;
      return nullptr;
    }
  }
  target->files_.push_back(file.get());
  return file;
}

// ---- The wire ----

// An answer is logged as the caller gets it, cut to what was asked for.
UsbResult DeviceTree::Carry(AttachedInterface& target, const WINUSB_SETUP_PACKET& setup,
                            Bytes& data, const std::function<UsbReply(const Bytes&)>& exchange) {
  TransferRecord record;
  record.path = target.details_.path;
  record.setup = setup;
  record.data = data;
  record.threadId = Scheduler::Current()->id();
  transfers_.Begin(record);

  record.startMs = scheduler_.NowMs();
  record.result = Exchange(target, record, data, exchange);
  record.endMs = scheduler_.NowMs();
  if ((setup.RequestType & 0x80) != 0) {
    record.data = data;
  }
  transfers_.Tell(record);
  return record.result;
}

// A device that leaves while it is busy has carried out the request, perhaps, but the caller never
// learns it. One that takes longer than the driver waits counts as not having answered.
UsbResult DeviceTree::Exchange(AttachedInterface& target, TransferRecord& record, Bytes& data,
                               const std::function<UsbReply(const Bytes&)>& exchange) {
  if (target.isGone()) {
    // The driver refuses at once, but a loop of such calls must cost time, too.
    scheduler_.SleepMs(1);
    data.clear();
    return UsbResult::Absent;
  }
  const bool toHost = (record.setup.RequestType & 0x80) != 0;
  if (!PassTime(target, TimeOnWireMs(record.setup))) {
    data.clear();
    return UsbResult::Vanished;
  }

  record.reachedDevice = true;
  UsbReply reply = exchange(data);
  if (toHost) {
    data = std::move(reply.data);
    data.resize(std::min<std::size_t>(data.size(), record.setup.Length));
  }
  if (reply.result == UsbResult::TimedOut || reply.delayMs >= ControlTimeoutMs) {
    reply.result = UsbResult::TimedOut;
    reply.delayMs = ControlTimeoutMs;
  }
  if (!PassTime(target, reply.delayMs)) {
    reply.result = UsbResult::Vanished;
  }
  if (toHost && reply.result != UsbResult::Done) {
    data.clear();
  }
  return reply.result;
}

// False as soon as the device leaves.
bool DeviceTree::PassTime(const AttachedInterface& target, std::uint64_t milliseconds) {
  if (milliseconds != 0) {
    scheduler_.WaitUntil([&] { return target.isGone(); }, scheduler_.NowMs() + milliseconds);
  }
  return !target.isGone();
}

}  // namespace platform
