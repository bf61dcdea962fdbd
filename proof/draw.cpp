#include "proof/draw.h"

#include <algorithm>
#include <iterator>

#include "simulator/stage.h"

namespace proof {

namespace {

// Behind the start-up sequence and one whole update, so that troubles meet every part of a life.
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
  // A value that is named twice is drawn twice as often.
  T OneOf(std::initializer_list<T> values) {
    return *(values.begin() + Next() % values.size());
  }

 private:
  u64 state_;
};

// Addresses at both ends of the address space are among them: that is where sums overflow. Sectors
// are of two sizes, as in most controllers.
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

// Slow and fast devices alike. A transfer size of 1000 is no power of two and divides no sector;
// zero times make a device that is done before it is asked.
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
  keyboard.collections.front().keyboardInterfaces = dice.OneOf<u32>({1, 1, 2, 3});
  keyboard.detachDelayMs = dice.OneOf<u32>({0, 1, 2, 5, 12, 30, 30, 120, 500});
  bootloader.donePercentAtPowerLoss = dice.OneOf<u32>({100, 100, 0, 50, 99});
  return keyboard;
}

// A target for another alternate setting, which the service must pass over, comes in front.
PackageDraft DrawPackage(Dice& dice, const KeyboardOptions& keyboard) {
  PackageDraft package;
  package.version = {1, 2, 2, 1};
  if (dice.OneIn(3)) {
    package.targets.push_back({1, {{0x1000, dice.Between(0, 64), 0x5A}}});
  }
  TargetDraft target;
  for (const ImagePart& part : DrawParts(dice, keyboard)) {
    target.elements.push_back({part.address, part.sizeBytes, std::nullopt});
  }
  package.targets.push_back(target);
  return package;
}

// The numbers that troubles take from the dice; each uses what it needs.
struct EventNumbers {
  u32 some;     // 1 to 3
  u32 shortMs;  // up to 20 s
  u32 busyMs;   // up to the longest that the protocol can tell
  u8 percent;   // a charge, on either side of what is enough
};

// The troubles that happen at a time of their own, each as likely as the others, and their numbers.
struct EventDraw {
  const char* kind;
  u64 (*first)(const EventNumbers& numbers) = nullptr;
  u64 (*second)(const EventNumbers& numbers) = nullptr;
};

u64 Some(const EventNumbers& numbers) {
  return numbers.some;
}

u64 ShortMs(const EventNumbers& numbers) {
  return numbers.shortMs;
}

u64 BusyMs(const EventNumbers& numbers) {
  return numbers.busyMs;
}

constexpr EventDraw EventDraws[] = {
    {"unplug", ShortMs},
    {"drop", Some},
    {"double", Some},
    {"late", ShortMs},
    {"apart", [](const EventNumbers& numbers) -> u64 { return numbers.some + 1; }},
    {"no-return"},
    {"slow", ShortMs},
    {"no-open"},
    {"foreign"},
    {"second"},
    {"pause"},
    {"control",
     [](const EventNumbers& numbers) -> u64 { return SERVICE_CONTROL_CONTINUE + numbers.some; }},
    {"stop"},
    {"log-off"},
    {"battery", [](const EventNumbers& numbers) -> u64 { return numbers.percent; }},
    {"error",
     [](const EventNumbers& numbers) -> u64 { return numbers.some == 1 ? errWRITE : errUNKNOWN; },
     [](const EventNumbers& numbers) -> u64 {
       return numbers.some == 3 ? dfuDNLOADIDLE : dfuERROR;
     }},
    {"say-busy", BusyMs},
    {"busy", BusyMs},
    {"silent"},
};

// All numbers are drawn each time, so that a change to one kind leaves the others' plans as they
// are.
Trouble DrawEvent(Dice& dice) {
  const u64 timeMs = dice.Between(0, TroublesEndMs - 5'000);
  EventNumbers numbers{};
  numbers.some = dice.Between(1, 3);
  numbers.shortMs = dice.OneOf<u32>({1, 100, 1500, 6'000, 20'000});
  numbers.busyMs = dice.OneOf<u32>({numbers.shortMs * 3, LongestPollTimeoutMs});
  numbers.percent = dice.OneOf<u8>({0, 12, 29, 29, 30, 31, 100, 255});
  const EventDraw& draw = EventDraws[dice.Between(0, std::size(EventDraws) - 1)];
  return MakeTrouble(draw.kind, FaultPlace::Time, timeMs,
                     draw.first == nullptr ? 0 : draw.first(numbers),
                     draw.second == nullptr ? 0 : draw.second(numbers));
}

// The troubles of a place, one of them at the most.
struct FaultDraw {
  u32 chances;
  void (*draw)(Dice& dice, std::vector<Trouble>& troubles);
};

// A whole update makes about 900 calls. A number beyond the end of a life does no harm.
void DrawCallFault(Dice& dice, std::vector<Trouble>& troubles) {
  const u32 number = dice.Between(1, 900);
  const u32 error = dice.Between(0, 2);
  troubles.push_back(MakeTrouble("fail", FaultPlace::Call, number, error, dice.OneIn(8) ? 1 : 0));
}

void DrawKill(Dice& dice, std::vector<Trouble>& troubles) {
  troubles.push_back(MakeTrouble("kill", FaultPlace::Call, dice.Between(1, 900)));
}

// Away for a moment, so that nobody looks meanwhile; or for longer than the service waits.
void DrawPull(Dice& dice, std::vector<Trouble>& troubles) {
  const u32 transfer = dice.Between(1, 120);
  const u64 awayMs = dice.OneOf<u64>({1, 50, 1'500, 8'000});
  troubles.push_back(
      MakeTrouble("unplug", FaultPlace::Transfer, transfer, awayMs, dice.OneOf<u32>({0, 0, 2, 3})));
}

// A small update asks for memory some forty times.
void DrawRefusal(Dice& dice, std::vector<Trouble>& troubles) {
  troubles.push_back(MakeTrouble("refuse", FaultPlace::Request, dice.Between(1, 60)));
}

void DrawSecond(Dice& dice, std::vector<Trouble>& troubles) {
  troubles.push_back(MakeTrouble("second", FaultPlace::Transfer, dice.Between(1, 120)));
}

void DrawNone(Dice&, std::vector<Trouble>&) {}

constexpr FaultDraw FaultDraws[] = {
    {2, DrawCallFault}, {1, DrawKill},   {1, DrawPull},
    {1, DrawRefusal},   {1, DrawSecond}, {3, DrawNone},
};

// Just under and just over a tick's time are where two threads meet.
void DrawHolds(Dice& dice, std::vector<Trouble>& troubles) {
  const u32 held = dice.OneIn(4) ? dice.Between(1, 3) : 0;
  for (u32 i = 0; i < held; ++i) {
    const u32 number = dice.Between(1, 900);
    troubles.push_back(
        MakeTrouble("hold", FaultPlace::Call, number, dice.OneOf<u64>({1, 2'999, 3'001, 10'000})));
  }
}

void DrawFault(Dice& dice, std::vector<Trouble>& troubles) {
  u32 chances = 0;
  for (const FaultDraw& fault : FaultDraws) {
    chances += fault.chances;
  }
  u32 drawn = dice.Between(0, chances - 1);
  for (const FaultDraw& fault : FaultDraws) {
    if (drawn < fault.chances) {
      fault.draw(dice, troubles);
      return;
    }
    drawn -= fault.chances;
  }
}

}  // namespace

// Charges stand on both sides of the edge. The versions for which no update is due are newer, of
// another model, or of another revision.
TrialPlan DrawTrial(u64 seed) {
  Dice dice(seed);
  TrialPlan plan;
  plan.name = "seed " + std::to_string(seed);
  plan.keyboard = DrawKeyboard(dice);
  SetPackage(plan, DrawPackage(dice, plan.keyboard));
  plan.schedulerSeed = dice.OneIn(4) ? 0 : dice.Next() | 1;
  plan.attachMs = dice.OneIn(2) ? 0 : dice.Between(1, 50'000);
  plan.userLoggedOn = !dice.OneIn(10);
  plan.batteryPercent = dice.OneIn(12) ? dice.OneOf<u8>({0, 29, 30, 255}) : FullEnoughPercent;
  plan.secondIsListedFirst = dice.OneIn(2);
  plan.quietAtMs = TroublesEndMs;
  // The package is not for this keyboard.
  if (dice.OneIn(20)) {
    plan.expectsUpdate = false;
    plan.keyboard.version = dice.OneOf<KeyboardVersion>(
        {{1, 2, 2, 1}, {2, 0, 2, 1}, {1, 1, 3, 1}, {1, 1, 2, 0}, {1, 1, 2, 2}, {0, 9, 2, 9}});
  }
  const u32 events = dice.Between(0, 5);
  for (u32 i = 0; i < events; ++i) {
    plan.troubles.push_back(DrawEvent(dice));
  }
  std::stable_sort(plan.troubles.begin(), plan.troubles.end(), HappensBefore);
  DrawHolds(dice, plan.troubles);
  DrawFault(dice, plan.troubles);
  return plan;
}

}  // namespace proof
