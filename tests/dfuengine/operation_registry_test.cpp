#include "dfuengine/operation_registry.h"

#include <atomic>
#include <cstring>
#include <optional>
#include <set>

#include "common/mutex_guard.h"
#include "common/status.h"
#include "common/update_lock.h"
#include "dfuengine/session_values.h"
#include "dfufile/dfu_image.h"
#include "simulator/hid_side.h"
#include "tests/support/dfu_path.h"
#include "tests/support/refused_memory.h"
#include "tests/support/tablet_test.h"

namespace {

using platform::Call;
using platform::HandleKind;

class OperationRegistryTest : public TabletTest {
 protected:
  OperationRegistryTest() : keyboard(PlugInInDfuMode()) {}

  void TearDown() override {
    while (OperationThread* const operation = operationRegistry.First()) {
      Finish(operation->operationId);
    }
    TabletTest::TearDown();
  }

  OperationContext Record(u32 operationCode) {
    OperationContext record{};
    CopyDevicePath(record, UsualDfuPath);
    record.operationCode = operationCode;
    record.image = &image;
    return record;
  }

  OperationThread& Launch(u32 operationCode) {
    OperationContext record = Record(operationCode);
    std::atomic<u32> id = 0;
    EXPECT_EQ(LaunchOperation(record, id, StatusSuccess, operationCode), StatusSuccess);
    return *FindOperation(id);
  }

  // Its thread cannot be created, so that it stays as it was made.
  OperationThread& LaunchWithoutThread(u32 operationCode = OperationErase) {
    FailCall(Call::CreateThread, ERROR_NOT_ENOUGH_MEMORY);
    return Launch(operationCode);
  }

  // The device is busy with its one sector for a minute.
  OperationThread& LaunchBusyErase() {
    keyboard.Change([](auto& options) { options.bootloader.eraseBaseMs = 60'000; });
    keyboard.AttachInDfuMode();
    ElementList sectors;
    sectors.Insert(0, simulator::DefaultFlashAddress, 0);
    image.Elements.Swap(sectors);
    OperationThread& operation = Launch(OperationErase);
    PassTime(5000);
    return operation;
  }

  u32 Finish(u32 operationId) {
    currentOperationId = operationId;
    return FinishOperation(nullptr);
  }

  static OperationContext Published(OperationThread& operation) {
    OperationContext published{};
    operation.GetContext(published);
    return published;
  }

  simulator::VirtualKeyboard& keyboard;
  DfuImage image{0, 0, nullptr};
};

TEST_F(OperationRegistryTest, MakesItsRecordFromTheCallers) {
  constexpr u16 TransferSize = 0xFFFF;  // taken as told, however few bytes the host may carry
  const std::string path = "\\\\?\\" + std::string(255, 'p');
  keyboard.Change([&](auto& options) {
    options.bootloader.transferSize = TransferSize;
    options.dfuPath = simulator::Widen(path);
  });
  keyboard.AttachInDfuMode();
  OperationContext record;
  std::memset(static_cast<void*>(&record), 0x5A, sizeof(record));
  CopyDevicePath(record, path.c_str());
  record.guidA = OperationGuidA;
  record.guidB = LeaveOperationGuidB;
  record.operationCode = OperationDownload;
  record.image = &image;
  FailCall(Call::CreateThread, ERROR_NOT_ENOUGH_MEMORY);
  std::atomic<u32> id = 0;
  EXPECT_EQ(LaunchOperation(record, id, 0xCAFE, OperationDownload), 0xCAFEu);
  EXPECT_EQ(record.status, StatusSuccess);
  EXPECT_EQ(record.transferSize, TransferSize);

  // How far it has come is the operation's own.
  const OperationContext made = Published(*FindOperation(id));
  EXPECT_TRUE(made.guidA == OperationGuidA && made.guidB == LeaveOperationGuidB);
  EXPECT_EQ(made.operationCode, OperationDownload);
  EXPECT_EQ(made.image, &image);
  EXPECT_EQ(made.devicePath, path);
  EXPECT_EQ(made.transferSize, TransferSize);
  constexpr u8 Unset[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(std::memcmp(&made.dfuStatus, Unset, 6), 0);
  EXPECT_EQ(std::memcmp(&made.blockNumber, Unset, 4), 0);
  EXPECT_EQ(made.phase & made.length & made.elementIndex, 0xFFFFFFFF);
  EXPECT_EQ(made.updateCount + made.percent + made.address, 0u);
  EXPECT_EQ(made.status, StatusSuccess);
  EXPECT_TRUE(made.fileHandle == nullptr && made.winUsbHandle == nullptr);
}

TEST_F(OperationRegistryTest, LaunchThatFailsLeavesNothingBehind) {
  std::optional<RefusedMemory> refused;
  const struct {
    const char* what;
    u32 operationCode;
    u32 status;
    std::function<void()> prepare;
  } cases[] = {
      {"code 2", 2, StatusNothingToWorkOn, [] {}},
      {"code 5", 5, StatusNothingToWorkOn, [] {}},
      {"no device", 3, StatusDeviceNotOpened, [this] { keyboard.Detach(); }},
      {"the device cannot be opened", 4, StatusDeviceNotOpened,
       [this] { FailCall(Call::WinUsb_Initialize, ERROR_BAD_DEVICE); }},
      {"no configuration descriptor", 1, StatusRequestFailed,
       [this] { FailCall(Call::WinUsb_GetDescriptor, ERROR_GEN_FAILURE); }},
      {"transfer size 0", 3, StatusRequestFailed,
       [this] { keyboard.Change([](auto& options) { options.bootloader.transferSize = 0; }); }},
      {"no event", 3, StatusRequestFailed,
       [this] { FailCall(Call::CreateEventW, ERROR_NOT_ENOUGH_MEMORY); }},
      {"no mutex", 3, StatusRequestFailed,
       [this] { FailCall(Call::CreateMutexW, ERROR_NOT_ENOUGH_MEMORY); }},
      {"no memory", 3, StatusRequestFailed, [&] { refused.emplace(1); }},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    keyboard.Change([](auto& options) { options.bootloader.transferSize = 1024; });
    keyboard.AttachInDfuMode();
    each.prepare();
    OperationContext record = Record(each.operationCode);
    std::atomic<u32> id = 4711;
    EXPECT_EQ(LaunchOperation(record, id, 0xCAFE, each.operationCode), each.status);
    EXPECT_EQ(id, 4711u);
    EXPECT_EQ(operationRegistry.First(), nullptr);
    EXPECT_TRUE(machine.handles.OpenHandles().empty());
  }
  EXPECT_EQ(machine.gate.CountOf(Call::CreateThread), 0u);
}

// Paths that only their last character tells apart are as long as a record can hold.
TEST_F(OperationRegistryTest, OpensOnlyTheDeviceOfItsPath) {
  const std::string path = "\\\\?\\" + std::string(255, 'p');
  const std::string another = path.substr(0, 258) + 'q';
  const struct {
    const char* what;
    std::string recordPath;
    u32 status;
  } cases[] = {
      {"none", "", StatusDeviceNotOpened},
      {"its beginning", path.substr(0, 258), StatusDeviceNotOpened},
      {"another last character", another, StatusDeviceNotOpened},
      {"its own", path, StatusSuccess},
  };
  keyboard.Change([&](auto& options) { options.dfuPath = simulator::Widen(path); });
  keyboard.AttachInDfuMode();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    OperationContext record = Record(OperationErase);
    CopyDevicePath(record, each.recordPath.c_str());
    std::atomic<u32> id = 0;
    EXPECT_EQ(LaunchOperation(record, id, StatusSuccess, OperationErase), each.status);
    EXPECT_EQ(id != 0, each.status == StatusSuccess);
    EXPECT_EQ(record.devicePath, each.recordPath);
  }
}

// Also when a later operation gets the place in memory of an earlier one.
TEST_F(OperationRegistryTest, NoIdIsEverZeroOrUsedAgain) {
  std::set<u32> ids = {0};
  for (int i = 0; i < 20; ++i) {
    const u32 id = LaunchWithoutThread().operationId;
    EXPECT_TRUE(ids.insert(id).second) << id;
    if (i % 2 == 0) {
      Finish(id);
    }
  }
}

TEST_F(OperationRegistryTest, FinishesOnlyTheCurrentOperation) {
  OperationContext untouched{};
  untouched.percent = 77;
  EXPECT_EQ(FinishOperation(&untouched), StatusNothingToWorkOn);

  OperationThread& other = LaunchWithoutThread();
  for (const u32 id : {0u, other.operationId + 1}) {
    currentOperationId = id;
    EXPECT_EQ(FinishOperation(&untouched), StatusNothingToWorkOn);
    EXPECT_EQ(operationRegistry.First(), &other);
  }
  EXPECT_EQ(untouched.percent, 77);
}

TEST_F(OperationRegistryTest, StopClosesTheDeviceAndAbortsOnlyWhatItInterrupts) {
  const struct {
    u64 afterMs;
    DWORD exitCode;
    std::vector<std::string> requests;
  } cases[] = {
      {0, ExitStopped, {"ABORT - refused"}},
      {70'000, ExitStepsDone, {}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.afterMs);
    OperationThread& operation = LaunchBusyErase();
    PassTime(each.afterMs);
    ASSERT_EQ(machine.handles.OpenCount(HandleKind::WinUsb), 1u);
    const u32 updateCount = Published(operation).updateCount;

    LookFromHere();
    DWORD exitCode = 77;
    EXPECT_EQ(operation.Stop(&exitCode), 1);
    EXPECT_EQ(exitCode, each.exitCode);
    EXPECT_EQ(DfuRequests(), each.requests);
    EXPECT_EQ(machine.handles.OpenCount(HandleKind::WinUsb), 0u);
    EXPECT_EQ(machine.handles.OpenCount(HandleKind::File), 0u);
    EXPECT_EQ(Published(operation).fileHandle, nullptr);
    EXPECT_EQ(Published(operation).winUsbHandle, nullptr);
    EXPECT_EQ(Published(operation).updateCount, updateCount + 1);

    // Whoever has the same handle values by now keeps them.
    EXPECT_EQ(operation.Stop(&exitCode), 0);
    EXPECT_EQ(DfuRequests(), each.requests);
    Finish(operation.operationId);
  }
}

// A publication that is left out could be the operation's last, one that is not read its end.
TEST_F(OperationRegistryTest, CopiesTheContextAlsoWithoutItsMutex) {
  const auto failBothWaits = [this] {
    FailCall(Call::WaitForSingleObject, ERROR_INVALID_HANDLE, 1);
    FailCall(Call::WaitForSingleObject, ERROR_INVALID_HANDLE, 2);
  };
  OperationThread& operation = LaunchWithoutThread();
  OperationContext record = Published(operation);
  record.percent = 42;
  failBothWaits();
  operation.SetContext(record);
  failBothWaits();
  record = Published(operation);
  EXPECT_EQ(record.percent, 42);
  EXPECT_EQ(record.updateCount, 1u);
}

// Publishes records whose fields all tell the same number.
class CountingOperation : public OperationThread {
 public:
  static constexpr u32 Publications = 2000;

  explicit CountingOperation(OperationContext& record) : OperationThread(record) {}

  i32 Step() override {
    OperationContext record{};
    for (u32 i = 1; i <= Publications; ++i) {
      record.guidA.Data1 = i;
      std::memset(record.devicePath, static_cast<int>(i & 0x7F), sizeof(record.devicePath) - 1);
      record.updateCount = 77;  // not taken over
      record.elementIndex = i;
      SetContext(record);
    }
    return 0;
  }
};

TEST_F(OperationRegistryTest, ReaderNeverSeesHalfAPublication) {
  OperationContext record = Record(OperationErase);
  CountingOperation operation(record);
  operation.Start();
  OperationContext seen{};
  while (seen.elementIndex != CountingOperation::Publications) {
    PassTime(0);
    seen = Published(operation);
    if (seen.updateCount != 0) {
      ASSERT_EQ(seen.guidA.Data1, seen.updateCount);
      ASSERT_EQ(seen.elementIndex, seen.updateCount);
      const char filling = static_cast<char>(seen.updateCount & 0x7F);
      ASSERT_EQ(std::string(seen.devicePath), std::string(filling == 0 ? 0 : 259, filling));
    }
  }
  operation.Stop(nullptr);
}

}  // namespace
