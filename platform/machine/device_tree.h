// The devices that are attached to the machine or once were, and their interfaces.
//
// The script of a run attaches and detaches devices here and watches what is sent to them; the
// calls of the layer list, open and drive them. A device that has left stays as a phantom, known
// but not present; attached again under its instance id it takes its old place in the lists. Any
// thread.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/device_backend.h"
#include "platform/machine/fault_log.h"
#include "platform/machine/handle_table.h"
#include "platform/machine/notifications.h"
#include "platform/machine/scheduler.h"
#include "platform/machine/transfer_log.h"

namespace platform {

// What the host's driver waits for a control transfer before it gives up.
inline constexpr std::uint32_t ControlTimeoutMs = 5000;

// One interface of a device. It has one of the two back-ends, or none when nobody talks through it.
// A device may have several; a keyboard's collection has one of the HID class and, if it carries
// keys, one of the keyboard class. Errors are the numbers that CreateFileW leaves as the last
// error.
struct DeviceInterface {
  GUID classGuid{};
  std::u16string path;
  bool enabled = true;       // false: known but not present until DeviceTree::Enable
  DWORD openError = 0;       // every open fails with it, for instance ERROR_SHARING_VIOLATION
  DWORD readWriteError = 0;  // an open that asks for reading or writing fails with it
  HidCollection collection;  // with hid
  // The two are shared with the files that are open when the device leaves.
  std::shared_ptr<HidBackEnd> hid;
  std::shared_ptr<UsbBackEnd> usb;
};

// A device node with its interfaces. One keyboard is several of them: Windows makes a node for each
// of its collections.
struct Device {
  std::u16string instanceId;
  bool instanceIdReadable = true;
  std::optional<std::u16string> description;
  std::vector<DeviceInterface> interfaces;
};

class DeviceFile;

// One interface from the moment its device is attached until it leaves. Files opened on it stay
// dead when the device comes back. Whoever talks to the device holds this and not the slot, which
// may have a newer one by then.
class AttachedInterface {
 public:
  explicit AttachedInterface(DeviceInterface details)
      : details_(std::move(details)), enabled_(details_.enabled) {}

  // As the script gave them; they do not change while it is attached.
  const DeviceInterface& details() const { return details_; }
  // Whether Windows has started it: only then it is listed as present and can be opened.
  bool isEnabled() const { return enabled_; }
  bool isGone() const { return gone_; }

 private:
  friend class DeviceTree;
  friend class DeviceFile;

  const DeviceInterface details_;
  std::atomic<bool> enabled_;
  std::atomic<bool> gone_ = false;
  std::mutex lock_;  // guards files_
  std::vector<const DeviceFile*> files_;
};

// How CreateFileW was asked to open. Sharing goes by it: each open has to bear what the others may
// do, and the others what it may.
struct OpenMode {
  DWORD access;
  DWORD share;
  DWORD flags;
};

// A device that the service has opened. It closes with its handle, or a moment later when another
// thread is in a call with it. The interface counts it among its files until then, which keeps
// others out.
class DeviceFile : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::File;

  DeviceFile(std::shared_ptr<AttachedInterface> target, const OpenMode& mode, FaultLog& faults)
      : target_(std::move(target)), mode_(mode), faults_(faults) {}
  ~DeviceFile() override;

  const std::shared_ptr<AttachedInterface>& target() const { return target_; }
  const OpenMode& mode() const { return mode_; }

  // True between WinUsb_Initialize and WinUsb_Free.
  std::atomic<bool> inWinUsb = false;

 private:
  const std::shared_ptr<AttachedInterface> target_;
  const OpenMode mode_;
  FaultLog& faults_;
};

// What the lists know about a device node. A copy: it says how things were when it was asked for,
// and the device may have left since.
struct DeviceNode {
  DEVINST number = 0;
  bool isPresent = false;
  bool instanceIdReadable = true;
  std::u16string instanceId;
  std::optional<std::u16string> description;
};

class DeviceTree {
 public:
  DeviceTree(Scheduler& scheduler, FaultLog& faults, NotificationCenter& notifications,
             TransferLog& transfers)
      : scheduler_(scheduler),
        faults_(faults),
        notifications_(notifications),
        transfers_(transfers) {}

  // --- For the script of a run ---

  // All of the devices are there before the first arrival is announced. One that is present already
  // leaves first.
  void Attach(const std::vector<Device>& devices);
  // All of them are gone before the first removal is announced. What is not plugged in is passed
  // over.
  void Detach(const std::vector<std::u16string>& instanceIds);
  // Whether it is plugged in at the moment.
  bool IsPresent(const std::u16string& instanceId) const;

  // The interface with that path is present from now on, and announced, if its device is attached.
  // Windows starts the interfaces of a device one after the other.
  void Enable(const std::u16string& path);

  // --- For the calls of the layer ---

  // The paths of the class, in the order in which the devices were first attached. Windows promises
  // no order. This one is what it mostly shows, and it lets a script put a second device in front
  // of the first.
  std::vector<std::u16string> ListInterfaces(const GUID& classGuid, bool presentOnly) const;

  // By path, by instance id or by number; phantoms are found, too. Nothing when there never was
  // one.
  std::optional<DeviceNode> FindNodeOfInterface(const std::u16string& path) const;
  std::optional<DeviceNode> FindNode(const std::u16string& instanceId) const;
  std::optional<DeviceNode> FindNode(DEVINST number) const;

  // Opens an interface for CreateFileW. Null with the last-error value in error: the path is empty
  // or names nothing present, the interface refuses, its share modes conflict, or it is a WinUSB
  // device that is open already. Paths are compared ignoring case. The file is open for as long as
  // the pointer is held.
  std::shared_ptr<DeviceFile> OpenPath(const std::u16string& path, const OpenMode& mode,
                                       DWORD& error);

  // Carries one transfer: takes the time of the wire, asks the device through exchange, logs it.
  // data holds what goes to the device, and afterwards what came from it. After anything but Done
  // there is no answer. A call to a device that has left costs a millisecond, so that a loop of
  // them lets time pass. Two threads may carry transfers at the same time: Windows queues them for
  // one device, and here the judges see them side by side.
  UsbResult Carry(AttachedInterface& target, const WINUSB_SETUP_PACKET& setup, Bytes& data,
                  const std::function<UsbReply(const Bytes&)>& exchange);

 private:
  // A device's place in the lists. It is kept for as long as the machine is on.
  struct Slot {
    Device device;
    std::vector<std::shared_ptr<AttachedInterface>> attached;  // one for each; none for a phantom
  };

  Slot* FindSlot(const std::u16string& instanceId);
  DeviceNode DescribeSlot(std::size_t index) const;
  // Null when nothing with that path is plugged in, enabled or not.
  std::shared_ptr<AttachedInterface> FindAttached(const std::u16string& path) const;
  void AnnounceAll(CM_NOTIFY_ACTION action,
                   const std::vector<std::shared_ptr<AttachedInterface>>& interfaces);
  bool PassTime(const AttachedInterface& target, std::uint64_t milliseconds);
  // The device's part of a transfer, with its times; Carry keeps the record of it.
  UsbResult Exchange(AttachedInterface& target, TransferRecord& record, Bytes& data,
                     const std::function<UsbReply(const Bytes&)>& exchange);

  Scheduler& scheduler_;
  FaultLog& faults_;
  NotificationCenter& notifications_;
  TransferLog& transfers_;
  mutable std::mutex lock_;  // guards slots_
  std::vector<Slot> slots_;
};

}  // namespace platform
