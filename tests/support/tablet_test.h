// The fixture of every test that needs a machine: a small tablet with verbs.
//
// The test itself runs on a thread of the machine, so it may call the service's operations directly
// as well as start the whole service and let time pass. At the end nothing may be left open but
// what lives as long as the service's process, and the layer must have found no fault in its
// callers.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/machine/machine.h"
#include "simulator/foreign_keyboard.h"
#include "simulator/package.h"
#include "simulator/tablet.h"
#include "simulator/virtual_keyboard.h"
#include "tests/support/printing.h"

class TabletTest : public ::testing::Test {
 protected:
  TabletTest();
  ~TabletTest() override;

  // Checks what the tablet looks like when the test is over.
  void TearDown() override;

  // --- Setting up ---

  // A sound package of that version, in the usual folder; its contents.
  simulator::Package InstallPackage(const simulator::KeyboardVersion& version = {1, 2, 2, 1});

  // A keyboard that is plugged in; its firmware is older than the usual package's. It lives to the
  // end of the process.
  simulator::VirtualKeyboard& PlugIn(const simulator::KeyboardOptions& options = {});
  simulator::VirtualKeyboard& PlugInInDfuMode(const simulator::KeyboardOptions& options = {});

  void LogOnUser() { tablet.LogOnUser(); }

  // --- Running ---

  void StartService() { tablet.StartService(); }
  void PassTime(u64 milliseconds) { tablet.PassTime(milliseconds); }

  // Lets time pass until the condition holds; fails the test when it does not within the time.
  void PassTimeUntil(const char* what, const std::function<bool()>& condition,
                     u64 atMostMs = 300'000);

  u64 nowMs() const { return tablet.nowMs(); }

  // The occurrence-th use of the call from now fails. The test fails when it was not met.
  void FailCall(platform::Call call, u32 error, u32 occurrence = 1);

  // All uses of the call from now fail until StopFailing.
  void KeepFailing(platform::Call call, u32 error);
  void StopFailing() { machine.gate.ClearFailures(); }

  // --- Looking ---

  // What was written to the debug output, one string a write.
  std::vector<std::string> Lines() const;
  std::size_t CountLines(const std::string& text) const;

  // The words told to the user so far.
  std::vector<std::string> Words() const;

  // The transfers between the service and devices so far, as a person would read them, for instance
  // "DNLOAD block 2, 1024 bytes" (see simulator::DescribeTransfer).
  std::vector<std::string> Wire() const;

  // The records behind them.
  std::vector<platform::TransferRecord> Transfers() const;

  // Only the DFU class requests of Wire.
  std::vector<std::string> DfuRequests() const;

  // What the open handles of the class's kind stand for, in the order in which they were opened.
  template <class Object>
  std::vector<std::shared_ptr<Object>> OpenObjects() const {
    std::vector<std::shared_ptr<Object>> objects;
    for (const platform::OpenHandle& open : machine.handles.OpenHandles()) {
      if (open.kind == Object::Kind) {
        objects.push_back(machine.handles.Get<Object>(open.value, "the test"));
      }
    }
    return objects;
  }

  // Forgets lines and transfers so far, so that the next look shows what came since.
  void LookFromHere();

  // --- An exception from what TearDown checks ---

  // The layer finds a fault whose text holds these words.
  void ExpectFault(const std::string& words) { expectedFaults_.push_back(words); }

  simulator::Tablet& tablet;
  platform::Machine& machine;

 private:
  void CheckHandles() const;

  platform::Observation wire_;
  mutable std::mutex lock_;
  std::vector<platform::TransferRecord> transfers_;
  std::size_t firstLine_ = 0;
  u64 failuresOrdered_ = 0;
  bool failuresCounted_ = true;
  std::vector<std::string> expectedFaults_;
};
