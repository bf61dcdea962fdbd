// Every transfer between the service and an attached device, in the order of the wire.
//
// Traces, tests and the judge of a run watch here; a script can do something in front of one
// transfer, for instance pull the keyboard. Any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "platform/machine/device_backend.h"
#include "platform/machine/records.h"

namespace platform {

// One transfer. HID requests stand in it as the control transfers that they are on the wire. A
// refused or lost transfer is on record like the others: what counts is that it was tried.
struct TransferRecord {
  std::uint64_t number = 0;  // of the run, from 1
  std::uint64_t startMs = 0;
  std::uint64_t endMs = 0;
  std::uint32_t threadId = 0;  // of the calling thread
  std::u16string path;         // of the interface
  WINUSB_SETUP_PACKET setup{};
  Bytes data;  // what went to the device, or what it answered
  UsbResult result = UsbResult::Done;
  bool reachedDevice = false;  // the device has seen it, whatever became of the answer
};

// Observers are told of a transfer when it has ended.
class TransferLog : public Observers<TransferRecord> {
 public:
  // Runs the action in front of the transfer with that number of the run, on the calling thread.
  void AtTransfer(std::uint64_t number, std::function<void()> action);

  // How many have begun so far, those under way included.
  std::uint64_t total() const;

  // For the wire: numbers the record and runs what was ordered for it.
  void Begin(TransferRecord& record);

 private:
  mutable std::mutex lock_;
  std::uint64_t total_ = 0;
  std::multimap<std::uint64_t, std::function<void()>> actions_;
};

}  // namespace platform
