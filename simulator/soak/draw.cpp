#include "simulator/soak/draw.h"

#include <algorithm>

namespace simulator {

namespace {

constexpr u64 TroublesEndMs = 90'000;

// bwPollTimeout has 24 bits: more than four hours and a half.
constexpr u32 LongestPollTimeoutMs = 0xFFFFFF;

// splitmix64: small, and the same on every machine.
class Dice {
 public:
  explicit Dice(u64 seed) : state_(seed) {}

  u64 Next() {
    u64 mixed = (state_ += 0x9E3779B97F4A7C15ull);
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9ull;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBull;
    return mixed ^ (mixed >> 31);
  }

  // first to last, both included.
  u32 Between(u32 first, u32 last) { return first + static_cast<u32>(Next() % (last - first + 1)); }

  bool OneIn(u32 chances) { return Next() % chances == 0; }

  template <class T>
  T OneOf(std::initializer_list<T> values) {
    return *(values.begin() + Next() % values.size());
  }

 private:
  u64 state_;
};

void DrawFlash(Dice& dice, KeyboardOptions& keyboard) {
  keyboard.flash.clear();
  u32 address = dice.OneOf<u32>({0, 0x08000000, 0x90000000, 0xFFFF0000});
  const u32 regions = address == 0xFFFF0000 ? 1 : dice.Between(1, 2);
  keyboard.imageAddress = address;
  for (u32 i = 0; i < regions; ++i) {
    FlashRegion region;
    region.address = address;
    if (address == 0xFFFF0000) {
      region.runs = {{16, 4 * 1024, 'g'}};  // ends where the address space does
    } else {
      region.runs = {{dice.Between(2, 6), dice.OneOf<u32>({512, 1024, 2048}), 'g'},
                     {dice.Between(1, 4), dice.OneOf<u32>({4096, 8192}), 'g'}};
    }
    keyboard.flash.push_back(region);
    address += 0x00100000;
  }
}

u32 RegionBytes(const FlashRegion& region) {
  u32 bytes = 0;
  for (const SectorRun& run : region.runs) {
    bytes += run.count * run.sectorBytes;
  }
  return bytes;
}

// Parts that touch neither each other nor the same byte twice, in any order but for the first,
// which carries the image's record. What many blocks show, fifty of them show as well.
std::vector<ImagePart> DrawParts(Dice& dice, const KeyboardOptions& keyboard) {
  const u32 mostBytes = std::max(512u, 50u * keyboard.bootloader.transferSize);
  std::vector<ImagePart> parts;
  for (const FlashRegion& region : keyboard.flash) {
    const u32 bytes = RegionBytes(region);
    const u32 half = bytes / 2;
    parts.push_back({region.address, dice.Between(256, std::min(half, mostBytes))});
    if (dice.OneIn(2)) {
      const u32 start = half + dice.Between(0, half / 2);
      parts.push_back(
          {region.address + start, dice.Between(1, std::min(bytes - start, mostBytes))});
    }
  }
  if (parts.size() > 2 && dice.OneIn(2)) {
    std::swap(parts[1], parts.back());
  }
  return parts;
}

KeyboardOptions DrawKeyboard(Dice& dice) {
  KeyboardOptions keyboard;
  keyboard.version = {1, 1, 2, 1};
  DrawFlash(dice, keyboard);
  keyboard.firmware.clear();
  for (const FlashRegion& region : keyboard.flash) {
    keyboard.firmware.push_back({region.address, dice.Between(256, RegionBytes(region))});
  }
  BootloaderOptions& bootloader = keyboard.bootloader;
  bootloader.transferSize = dice.OneOf<u16>({64, 128, 256, 512, 1024, 1000, 2048, 4096});
  bootloader.eraseBaseMs = dice.OneOf<u32>({0, 1, 20, 150, 2000});
  bootloader.erasePer16KiBMs = dice.OneOf<u32>({0, 20, 100, 400});
  bootloader.writeMs = dice.OneOf<u32>({0, 0, 1, 4, 20});
  bootloader.setAddressMs = dice.OneOf<u32>({0, 1, 10});
  bootloader.busyRounds = dice.OneOf<u32>({1, 1, 1, 3});
  bootloader.manifestMs = dice.OneOf<u32>({0, 50, 500});
  bootloader.reportsManifestation = !dice.OneIn(4);
  keyboard.alternateSettings.clear();
  const u32 settings = dice.OneOf<u32>({1, 1, 1, 2, 3});
  for (u32 i = 0; i < settings; ++i) {
    keyboard.alternateSettings.push_back({static_cast<u8>(i), std::nullopt});
  }
  keyboard.restartMs = dice.OneOf<u32>({300, 1200, 1200, 4000});
  keyboard.leaveDelayMs = dice.OneOf<u32>({0, 20, 200});
  keyboard.refusedReports = dice.OneIn(6) ? 1 : 0;
  return keyboard;
}

Package DrawPackage(Dice& dice, const KeyboardOptions& keyboard) {
  Package package;
  package.version = {1, 2, 2, 1};
  package.fileName = "VantrelKb_" + VersionText(package.version) + ".dfu";
  if (dice.OneIn(3)) {
    DfuSeTarget other;
    other.alternateSetting = 1;
    other.elements.push_back({0x1000, std::vector<u8>(dice.Between(0, 64), 0x5A)});
    package.contents.targets.push_back(other);
  }
  DfuSeTarget target;
  target.elements = BuildKeyboardImage(package.version, DrawParts(dice, keyboard));
  package.contents.targets.push_back(target);
  package.bytes = BuildDfuSe(package.contents);
  return package;
}

void Unplug(Stage& stage, u64 awayMs) {
  stage.keyboard.PullFor(awayMs, stage.keyboard.mode() == KeyboardMode::Dfu);
}

// One trouble of the kinds that happen at a time of their own.
TrialEvent DrawEvent(Dice& dice) {
  const u64 timeMs = dice.Between(0, TroublesEndMs - 5'000);
  const u32 some = dice.Between(1, 3);
  const u32 shortMs = dice.OneOf<u32>({1, 100, 1500, 6'000, 20'000});
  switch (dice.Between(0, 16)) {
    case 0:
      return {timeMs, "keyboard pulled", [=](Stage& stage) { Unplug(stage, shortMs); }};
    case 1:
      return {timeMs, "arrivals to be dropped",
              [=](Stage& stage) { stage.deliveries.drop = some; }};
    case 2:
      return {timeMs, "notices to come twice",
              [=](Stage& stage) { stage.deliveries.twice = some; }};
    case 3:
      return {timeMs, "notices to come late",
              [=](Stage& stage) { stage.deliveries.delayMs = shortMs; }};
    case 4:
      return {timeMs, "keyboard not to return", [](Stage& stage) {
                stage.keyboard.Change(
                    [](KeyboardOptions& options) { options.returnsAfterReport = false; });
              }};
    case 5:
      return {
          timeMs, "keyboard slow to answer", [=](Stage& stage) {
            stage.keyboard.Change([=](KeyboardOptions& options) { options.silentMs = shortMs; });
          }};
    case 6:
      return {timeMs, "DFU device not to be opened", [](Stage& stage) {
                stage.keyboard.Change(
                    [](KeyboardOptions& options) { options.dfuOpenError = ERROR_ACCESS_DENIED; });
              }};
    case 7:
      return {timeMs, "foreign keyboard attached", [](Stage& stage) { stage.foreign.Attach(); }};
    case 8:
      return {timeMs, "service paused",
              [](Stage& stage) { stage.machine().services.SendControl(SERVICE_CONTROL_PAUSE); }};
    case 9:
      return {timeMs, "other control sent", [=](Stage& stage) {
                stage.machine().services.SendControl(SERVICE_CONTROL_CONTINUE + some);
              }};
    case 10:
      return {timeMs, "user logged off", [](Stage& stage) { stage.tablet.LogOffUser(); }};
    case 11:
      return {timeMs, "battery low",
              [](Stage& stage) { stage.machine().power.SetBatteryPercent(12); }};
    case 12:
      return {timeMs, "device reports an error", [=](Stage& stage) {
                stage.keyboard.ScriptStatus({static_cast<u8>(some == 1 ? errWRITE : errUNKNOWN), 0,
                                             some == 3 ? u8{dfuDNLOADIDLE} : u8{dfuERROR}});
              }};
    case 13: {
      const u32 busyMs = dice.OneOf<u32>({shortMs * 3, LongestPollTimeoutMs});
      if (some == 1) {
        return {timeMs, "device says that it is busy for long", [=](Stage& stage) {
                  stage.keyboard.ScriptStatus({dfuOK, busyMs, dfuDNBUSY});
                }};
      }
      return {timeMs, "device busy for long", [=](Stage& stage) {
                stage.keyboard.Change([=](KeyboardOptions& options) {
                  options.bootloader.eraseBaseMs = busyMs;
                  options.bootloader.writeMs = busyMs;
                });
              }};
    }
    case 14:
      return {timeMs, "second keyboard attached", [](Stage& stage) { stage.AttachSecond(); }};
    case 15:
      return {timeMs, "service stopped",
              [](Stage& stage) { stage.machine().services.SendControl(SERVICE_CONTROL_STOP); }};
    default:
      return {timeMs, "device answers nothing", [=](Stage& stage) {
                stage.keyboard.Intercept([](const WINUSB_SETUP_PACKET&, const platform::Bytes&) {
                  return platform::UsbReply{platform::UsbResult::TimedOut, {}, 0};
                });
              }};
  }
}

void DrawFaults(Dice& dice, TrialPlan& plan) {
  switch (dice.Between(0, 8)) {
    case 0:
    case 1:
      plan.callFault = CallFault{dice.Between(1, 900), dice.Between(0, 2), dice.OneIn(8)};
      break;
    case 2:
      plan.killAtCall = dice.Between(1, 900);
      break;
    case 3:
      plan.pull = Pull{dice.Between(1, 120), dice.OneOf<u64>({1, 50, 1'500, 8'000})};
      break;
    case 4:
      plan.refuseMemory = dice.Between(1, 60);
      break;
    case 5:
      plan.attachSecondAtTransfer = dice.Between(1, 120);
      break;
    default:
      break;
  }
}

}  // namespace

TrialPlan DrawTrial(u64 seed) {
  Dice dice(seed);
  TrialPlan plan;
  plan.name = "seed " + std::to_string(seed);
  plan.keyboard = DrawKeyboard(dice);
  plan.package = DrawPackage(dice, plan.keyboard);
  plan.scheduler.seed = dice.OneIn(4) ? 0 : dice.Next() | 1;
  plan.attachMs = dice.OneIn(2) ? 0 : dice.Between(1, 50'000);
  plan.userLoggedOn = !dice.OneIn(10);
  plan.secondIsListedFirst = dice.OneIn(2);
  plan.quietAtMs = TroublesEndMs;
  if (dice.OneIn(20)) {
    plan.expectsUpdate = false;
    plan.keyboard.version = dice.OneOf<KeyboardVersion>({{1, 2, 2, 1}, {2, 0, 2, 1}, {1, 1, 3, 1}});
  }
  const u32 events = dice.Between(0, 5);
  for (u32 i = 0; i < events; ++i) {
    plan.events.push_back(DrawEvent(dice));
  }
  std::stable_sort(plan.events.begin(), plan.events.end(),
                   [](const TrialEvent& a, const TrialEvent& b) { return a.timeMs < b.timeMs; });
  DrawFaults(dice, plan);
  return plan;
}

}  // namespace simulator
