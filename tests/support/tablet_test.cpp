#include "tests/support/tablet_test.h"

#include <algorithm>
#include <cstdlib>
#include <map>

#include "platform/machine/text.h"
#include "simulator/timeline.h"
#include "tests/support/test_main.h"

namespace {

// Never destroyed: threads of the service may still stand in its calls when the process ends. Leak
// checks find it here.
template <class T>
T& KeepForever(T* object) {
  static std::vector<void*>& kept = *new std::vector<void*>;
  kept.push_back(object);
  return *object;
}

simulator::Tablet& NewTablet() {
  simulator::TabletOptions options;
  if (std::getenv("VANTREL_TEST_PARALLEL") != nullptr) {
    options.scheduler.mode = platform::SchedulerMode::Parallel;
  }
  return KeepForever(new simulator::Tablet(options));
}

}  // namespace

TabletTest::TabletTest() : tablet(NewTablet()), machine(tablet.machine()) {
  machine.scheduler.OnStuck([](const std::string& why) { EndTest(why.c_str()); });
  wire_ = machine.transfers.Observe([this](const platform::TransferRecord& record) {
    const std::scoped_lock lock(lock_);
    transfers_.push_back(record);
  });
}

TabletTest::~TabletTest() {
  wire_.reset();
  tablet.Remove();
}

void TabletTest::TearDown() {
  machine.KillServiceProcess();
  for (const std::string& words : expectedFaults_) {
    EXPECT_GT(machine.faults.Expect(words), 0u) << "the layer found no fault: " << words;
  }
  for (const std::string& fault : machine.faults.All()) {
    ADD_FAILURE() << fault;
  }
  if (failuresCounted_) {
    EXPECT_EQ(machine.gate.FailedOf(), failuresOrdered_) << "an ordered failure was not met";
  }
  EXPECT_EQ(machine.heap.OpenBlocks(), 0u) << "blocks of the process heap were not freed";
  CheckHandles();
}

void TabletTest::CheckHandles() const {
  for (const auto& [kind, count] : simulator::CountOpenHandles(machine)) {
    EXPECT_LE(count, simulator::LongLivedHandles(kind))
        << "left open: " << platform::NameOf(kind) << " handles";
  }
}

simulator::Package TabletTest::InstallPackage(const simulator::KeyboardVersion& version) {
  simulator::Package package = simulator::DefaultPackage(version);
  tablet.InstallPackage(package.fileName, package.bytes);
  return package;
}

simulator::VirtualKeyboard& TabletTest::PlugIn(const simulator::KeyboardOptions& options) {
  simulator::VirtualKeyboard& keyboard =
      KeepForever(new simulator::VirtualKeyboard(machine, options));
  keyboard.Attach();
  return keyboard;
}

simulator::VirtualKeyboard& TabletTest::PlugInInDfuMode(const simulator::KeyboardOptions& options) {
  simulator::VirtualKeyboard& keyboard =
      KeepForever(new simulator::VirtualKeyboard(machine, options));
  keyboard.AttachInDfuMode();
  return keyboard;
}

void TabletTest::PassTimeUntil(const char* what, const std::function<bool()>& condition,
                               u64 atMostMs) {
  ASSERT_TRUE(tablet.PassTimeUntil(condition, atMostMs))
      << "after " << atMostMs << " ms still not: " << what;
}

void TabletTest::FailCall(platform::Call call, u32 error, u32 occurrence) {
  machine.gate.FailCall(call, occurrence, error);
  ++failuresOrdered_;
}

void TabletTest::KeepFailing(platform::Call call, u32 error) {
  machine.gate.FailCall(call, 1, error, true);
  failuresCounted_ = false;
}

std::vector<std::string> TabletTest::Lines() const {
  std::vector<std::string> lines;
  const std::vector<platform::DebugLine> all = machine.debugLog.All();
  for (std::size_t i = firstLine_; i < all.size(); ++i) {
    lines.push_back(platform::Utf8FromWide(all[i].text));
  }
  return lines;
}

std::size_t TabletTest::CountLines(const std::string& text) const {
  const std::vector<std::string> lines = Lines();
  return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), text));
}

std::vector<std::string> TabletTest::Words() const {
  std::vector<std::string> words;
  for (const simulator::ToldWord& told : tablet.WordsTold()) {
    words.push_back(told.word);
  }
  return words;
}

std::vector<platform::TransferRecord> TabletTest::Transfers() const {
  const std::scoped_lock lock(lock_);
  return transfers_;
}

std::vector<std::string> TabletTest::Wire() const {
  std::vector<std::string> wire;
  for (const platform::TransferRecord& record : Transfers()) {
    wire.push_back(simulator::DescribeTransfer(record));
  }
  return wire;
}

std::vector<std::string> TabletTest::DfuRequests() const {
  std::vector<std::string> requests;
  for (const platform::TransferRecord& record : Transfers()) {
    // Class requests to an interface; HID's own go to an interface, too, but with other numbers.
    const bool isClass = (record.setup.RequestType & 0x7F) == 0x21;
    if (isClass && record.setup.Request >= 1 && record.setup.Request <= 6 &&
        record.setup.Index == 0) {
      requests.push_back(simulator::DescribeTransfer(record));
    }
  }
  return requests;
}

void TabletTest::LookFromHere() {
  firstLine_ = machine.debugLog.All().size();
  const std::scoped_lock lock(lock_);
  transfers_.clear();
}
