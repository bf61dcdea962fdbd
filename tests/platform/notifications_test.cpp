// Notices on the way to a registration: late, dropped, twice.

#include <map>

#include "simulator/dfu_descriptors.h"
#include "tests/support/service_test.h"

namespace {

using platform::DeliveryPlan;
using platform::Notice;
using platform::NoticeEvent;

// How long the callback takes, the same for every notice.
constexpr u32 CallbackMs = 50;

DWORD CALLBACK TakeNotice(HCMNOTIFICATION, PVOID, CM_NOTIFY_ACTION, PCM_NOTIFY_EVENT_DATA, DWORD) {
  Sleep(CallbackMs);
  return ERROR_SUCCESS;
}

class NotificationsTest : public ServiceTest {
 protected:
  void SetUp() override {
    CM_NOTIFY_FILTER filter = {};
    filter.cbSize = sizeof(filter);
    filter.FilterType = CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE;
    filter.u.DeviceInterface.ClassGuid = simulator::DfuModeInterfaceGuid;
    HCMNOTIFICATION handle = nullptr;
    ASSERT_EQ(CM_Register_Notification(&filter, nullptr, TakeNotice, &handle), DWORD{CR_SUCCESS});
    machine.notifications.PlanDeliveries(
        [this](const Notice& notice) { return plans_[notice.path]; });
  }

  // Announces one notice for each plan at once, and lets them all be delivered.
  void Announce(const std::vector<DeliveryPlan>& plans) {
    for (const DeliveryPlan& plan : plans) {
      const std::u16string path(1, static_cast<char16_t>(u'a' + plans_.size()));
      plans_[path] = plan;
      machine.notifications.Announce(
          {CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, simulator::DfuModeInterfaceGuid, path});
    }
    PassTime(10'000);
  }

  // "b+100" when the second one was handed to the callback at 100 ms, "b-150" when that returned.
  std::string Deliveries() const {
    std::string text;
    for (const NoticeEvent& event : machine.notifications.events.All()) {
      if (event.stage != platform::NoticeStage::Announced) {
        const bool handed = event.stage == platform::NoticeStage::Handed;
        EXPECT_EQ(event.number, u64{event.notice.path[0]} - u'a' + 1);
        text += (text.empty() ? "" : " ") +
                std::string(1, static_cast<char>(event.notice.path[0])) + (handed ? "+" : "-") +
                std::to_string(event.timeMs);
      }
    }
    return text;
  }

 private:
  std::map<std::u16string, DeliveryPlan> plans_;
};

TEST_F(NotificationsTest, WaitForEachOtherInTheOrderOfTheirAnnouncement) {
  Announce({{.delayMs = 100}, {}, {.times = 0}, {.times = 2}});
  EXPECT_EQ(Deliveries(), "a+100 a-150 b+150 b-200 d+200 d-250 d+250 d-300");
  EXPECT_EQ(machine.notifications.events.All().size(), 12u) << "the dropped one is announced, too";
}

TEST_F(NotificationsTest, OnThreadsOfTheirOwnOvertakeAndComeAtOnce) {
  const DeliveryPlan late = {.delayMs = 100, .ownThread = true};
  const DeliveryPlan atOnce = {.times = 2, .ownThread = true};
  Announce({late, {.delayMs = 10}, atOnce, {}});
  EXPECT_EQ(Deliveries(), "c+0 c+0 b+10 c-50 c-50 b-60 d+60 a+100 d-110 a-150");
  std::set<u32> threads;
  for (const NoticeEvent& event : machine.notifications.events.All()) {
    threads.insert(event.threadId);
  }
  EXPECT_EQ(threads.size(), 5u) << "the script's, the registration's, three of their own";
}

}  // namespace
