// The fixture of the tests that lead an operation through its steps, on the test's own thread: a
// keyboard in DFU mode that answers by a script, an image, and an operation that can be looked
// into.
#pragma once

#include <string>
#include <vector>

#include "common/status.h"
#include "dfuengine/operation_thread.h"
#include "dfufile/dfu_image.h"
#include "tests/dfuengine/scripted_device.h"
#include "tests/support/dfu_path.h"
#include "tests/support/tablet_test.h"

// An operation of the given class that shows what it publishes and what it keeps to itself.
template <class Operation>
class Probe : public Operation {
 public:
  Probe(OperationContext& record, ScriptedDevice& device) : Operation(record), device_(device) {}

  // Ends it as its owner does. Done twice, it must not close anything a second time.
  ~Probe() override {
    this->Stop(nullptr);
    this->Stop(nullptr);
  }

  void SetContext(const OperationContext& newContext) override {
    Operation::SetContext(newContext);
    published.push_back(Copy());
    device_.NotePublication(published.back());
  }

  // A working copy of the published context.
  OperationContext Copy() {
    OperationContext copy{};
    this->GetContext(copy);
    return copy;
  }

  // The values that percent took, one after the other.
  std::vector<int> Percents() const {
    std::vector<int> percents;
    for (const OperationContext& each : published) {
      if (percents.empty() || percents.back() != each.percent) {
        percents.push_back(each.percent);
      }
    }
    return percents;
  }

  using Operation::OpenDevice;
  using Operation::pollTimeout;
  using Operation::totalBlocks;

  std::vector<OperationContext> published;

 private:
  ScriptedDevice& device_;
};

// What the device answers to one routine or to a whole operation, and what must come of it.
struct ScriptCase {
  const char* what;
  std::string script;
};

class OperationTest : public TabletTest {
 protected:
  using Routine = i32 (OperationThread::*)(OperationContext&);

  OperationTest() : keyboard(PlugInInDfuMode()), device(machine, keyboard) {}

  // Appends an element whose bytes differ from place to place.
  void AddElement(u32 address, u32 size) {
    std::vector<u8> bytes(size);
    for (u32 at = 0; at < size; ++at) {
      bytes[at] = static_cast<u8>(at * 7 + at / 256);
    }
    ASSERT_EQ(InsertElement(&image, image.Elements.size(), {address, size, bytes.data()}), 1);
  }

  // Makes it an image of elements for counting: of a size that no device is sent, without bytes.
  void SetSizes(const std::vector<u32>& sizes) {
    constexpr u32 MostBytes = 65'535;
    ElementList counted;
    image.Elements.Swap(counted);
    for (const u32 size : sizes) {
      DfuElement* const element =
          image.Elements.Insert(image.Elements.size(), simulator::DefaultFlashAddress, size);
      element->Data = size <= MostBytes ? new u8[size]() : nullptr;
    }
  }

  OperationContext Record(u32 operationCode) {
    OperationContext record{};
    CopyDevicePath(record, UsualDfuPath);
    record.operationCode = operationCode;
    record.image = &image;
    return record;
  }

  // Opens the device for a routine that the test calls by itself.
  template <class Operation>
  OperationContext Open(Probe<Operation>& operation) {
    OperationContext work = operation.Copy();
    EXPECT_TRUE(operation.OpenDevice(work));
    work.phase = PhaseDnload;
    work.elementIndex = 0;
    work.blockNumber = 3;
    work.length = 1024;
    return work;
  }

  // Runs the routine by each script; block 3 is due. The end is noted as "GOOD", with the poll
  // time-out when the routine set it, or as the status.
  template <class Operation>
  void Check(Routine routine, const std::vector<ScriptCase>& cases) {
    constexpr u32 Untouched = 77;
    for (const ScriptCase& test : cases) {
      OperationContext record = Record(OperationDownload);
      Probe<Operation> operation(record, device);
      OperationContext work = Open(operation);
      operation.pollTimeout = Untouched;
      device.Play(test.script);
      const i32 result = (operation.*routine)(work);
      device.Note(result != 1 ? StatusWord(work.status)
                  : operation.pollTimeout == Untouched
                      ? "GOOD"
                      : "GOOD:" + std::to_string(operation.pollTimeout));
      device.ExpectPlayed(test.what);
      EXPECT_EQ(operation.published.back().status, work.status) << test.what;
    }
  }

  // Runs one step after the other, without the waits, by the script. Each step that asks for
  // another one is noted as "/" and the milliseconds asked for; the end as "DONE" or the status,
  // with the percentage when that is 100.
  template <class Operation>
  void PlaySteps(Probe<Operation>& operation, const ScriptCase& test) {
    device.Play(test.script);
    for (int step = 0; operation.Step() != 0; ++step) {
      ASSERT_LT(step, 100) << test.what << ": the steps do not end";
      const u32 waitMs = operation.StepTimeout();
      device.Note(waitMs == 0 ? "/" : "/" + std::to_string(waitMs));
    }
    const OperationContext last = operation.Copy();
    device.Note((last.status == StatusSuccess ? "DONE" : StatusWord(last.status)) +
                (last.percent == 100 ? ":100" : ""));
    device.ExpectPlayed(test.what);
  }

  simulator::VirtualKeyboard& keyboard;
  ScriptedDevice device;
  DfuImage image{0, 0, nullptr};
};
