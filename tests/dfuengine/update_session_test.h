// The fixture of the tests of the session driver: operations that do nothing and publish what the
// test wants, and images that say when they are released.
#pragma once

#include <cstring>
#include <map>
#include <string>

#include "common/debug_output.h"
#include "common/status.h"
#include "dfuengine/operation_registry.h"
#include "dfuengine/update_session.h"
#include "dfufile/dfu_image.h"
#include "dfufile/image_registry.h"
#include "service/package_location.h"
#include "simulator/hid_side.h"
#include "tests/support/service_test.h"

// Says when it is stopped. Its thread, once started, waits for that, or steps as the test wants.
class SilentOperation : public OperationThread {
 public:
  explicit SilentOperation(OperationContext& record) : OperationThread(record) {}
  i32 Step() override { return whenStepping(); }
  u32 StepTimeout() override { return stepTimeoutMs; }
  i32 Stop(DWORD* exitCode) override {
    WriteDebugText(TEXT("[operation stopped]"));
    whenStopped();
    return OperationThread::Stop(exitCode);
  }

  std::function<i32()> whenStepping = [] { return 1; };
  u32 stepTimeoutMs = INFINITE;
  std::function<void()> whenStopped = [] {};
};

// Says when it is destroyed.
class SilentImage : public DfuImage {
 public:
  SilentImage() : DfuImage(0, 0, nullptr) {}
  ~SilentImage() override { WriteDebugText(TEXT("[image released]")); }
};

class UpdateSessionTest : public ServiceTest {
 protected:
  static constexpr char DevicePath[] = "\\\\?\\usb#the#device";
  static constexpr char OtherPath[] = "\\\\?\\usb#the#other";

  UpdateSessionTest() {
    InstallPackage();
    LogOnUser();
    SelectPackageFolder();
  }

  void TearDown() override {
    ClearSession();
    ServiceTest::TearDown();
  }

  simulator::VirtualKeyboard& PlugInDevice(KeyboardOptions options = {}) {
    options.dfuPath = simulator::Widen(DevicePath);
    return PlugInInDfuMode(options);
  }

  // Whether an arrival that is told now begins an update.
  static bool ArrivalIsServed() {
    InterruptedUpdate interrupted;
    return ClearWayForUpdate(interrupted);
  }

  // A session whose current operation has published this. Its image is the upgrade image in a
  // download and another one in the other operations.
  SilentOperation& BeginSession(u32 operationCode, u32 status, u8 percent) {
    DfuImage* image = new SilentImage;
    RegisterImage(&image);
    upgradeImage = image;
    if (operationCode != OperationDownload) {
      upgradeImage = new DfuImage(0, 0, nullptr);
      RegisterImage(&upgradeImage);
    }

    OperationContext record{};
    record.guidA = OperationGuidA;
    CopyDevicePath(record, DevicePath);
    record.operationCode = operationCode;
    record.image = image;
    auto* const operation = new SilentOperation(record);
    operation->operationId = nextId_++;
    operationRegistry.Append(*operation);
    currentOperationId = operation->operationId;
    Publish(*operation, [&](OperationContext& published) {
      published.status = status;
      published.percent = percent;
    });
    LookFromHere();
    return *operation;
  }

  static void Publish(OperationThread& operation,
                      const std::function<void(OperationContext&)>& change) {
    OperationContext record{};
    operation.GetContext(record);
    change(record);
    operation.SetContext(record);
  }

  void ClearSession() {
    while (OperationThread* const operation = operationRegistry.First()) {
      currentOperationId = operation->operationId;
      FinishOperation(nullptr);
    }
    while (DfuImage* image = dfuImageRegistry.First()) {
      ReleaseImage(&image);
    }
    currentOperationId = 0;
    upgradeImage = nullptr;
    disconnectNotified = 0;
  }

  // What became of the session since it began, a word each.
  std::string Events() const {
    static const std::map<std::string, std::string> Names = {
        {"[operation stopped]", "stopped"},
        {"[image released]", "released"},
        {"\nErase successful!!!\n", "erased"},
        {"\nUpgrade successful!!!\n", "written"},
        {"\nSuccessfully left DFU mode!\n", "left"},
        {"error:: when updating fw\n", "error"},
        {"DISCONNECT", "DISCONNECT"},
        {"COMPLETE", "COMPLETE"}};
    std::string events;
    for (const std::string& line : Lines()) {
      const auto name = Names.find(line);
      events += name == Names.end() ? "" : (events.empty() ? "" : " ") + name->second;
    }
    return events;
  }

  // The record of the operation that the session runs now.
  static OperationContext CurrentRecord() {
    OperationContext record{};
    OperationThread* const operation = FindOperation(currentOperationId);
    EXPECT_NE(operation, nullptr);
    if (operation != nullptr) {
      operation->GetContext(record);
    }
    return record;
  }

  void LaunchNextWithoutThread() { FailCall(Call::CreateThread, ERROR_NOT_ENOUGH_MEMORY); }

 private:
  u32 nextId_ = 0x90000001;
};
