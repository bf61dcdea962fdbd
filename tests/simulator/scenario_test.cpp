// Scenarios as text: what is written reads back the same, and what is wrong is refused with its
// line and what was expected.

#include "simulator/scenario.h"

#include <gtest/gtest.h>

namespace {

using namespace simulator;

std::string Write(const Scenario& scenario) {
  return WriteSettings(ScenarioSettings(), scenario);
}

// The reason for which the text is refused; empty when it is not.
std::string Read(const std::string& text, Scenario& scenario) {
  std::vector<SettingLine> lines;
  std::string reason;
  if (!SplitSettings(text, lines, reason)) {
    return reason;
  }
  SettingReader<Scenario> reader(ScenarioSettings());
  for (const SettingLine& line : lines) {
    switch (reader.Take(line, scenario, reason)) {
      case LineOutcome::Refused:
        return reason;
      case LineOutcome::NotMine:
        return UnknownSetting(line);
      case LineOutcome::Taken:
        break;
    }
  }
  return {};
}

TEST(ScenarioTest, ReadsWhatAPersonWrites) {
  Scenario scenario;
  EXPECT_EQ(Read("# a keyboard of one's own\n"
                 "\n"
                 "  keyboard=0.9.3.1\r\n"
                 "map = \"@Flash = all/0x90000000/02*512 g,01*004Ka/0xFFFF0000/16*004Kg\"\n"
                 "firmware = 0x90000000 700\n"
                 "firmware = 0xFFFF0000 65536\n"
                 "image-address = 0x90000000\n"
                 "alternate-setting = 2 \"@Other  /0x0/01*001Ka\"\n"
                 "collection = 1 6 in 9 keyboards 2 access-error 5 product \"Keys 1 . 2\"\n"
                 "arrival-order = 1 0\n"
                 "erase-ms = 16777215\n"
                 "reports-manifestation = no\n"
                 "package = 1.0.3.1\n"
                 "target = 1\n"
                 "target = 0: 0x90000000 300, 0x00001000 64 fill 90\n"
                 "attach-at = 22.5s\n"
                 "seed = 18446744073709551615\n",
                 scenario),
            "");
  const KeyboardOptions& keyboard = scenario.keyboard;
  EXPECT_EQ(keyboard.flashName, "Flash = all");
  ASSERT_EQ(keyboard.flash.size(), 2u);
  EXPECT_EQ(keyboard.flash[0].runs[1].access, 'a');
  ASSERT_EQ(keyboard.collections.size(), 1u);
  EXPECT_EQ(keyboard.collections[0].keyboardInterfaces, 2u);
  EXPECT_EQ(keyboard.collections[0].productString, u"Keys 1 . 2");
  EXPECT_EQ(scenario.packageDraft.targets[1].elements[1].fill, 90);
  EXPECT_EQ(scenario.attachMs, 22'500u);

  // Written and read once more it is the same, to the last setting.
  Scenario again;
  EXPECT_EQ(Read(Write(scenario), again), "");
  EXPECT_EQ(Write(again), Write(scenario));
  EXPECT_EQ(again.keyboard.arrivalOrder, keyboard.arrivalOrder);
  EXPECT_EQ(again.schedulerSeed, ~u64{0});
  EXPECT_EQ(MakePackage(again.packageDraft).bytes, MakePackage(scenario.packageDraft).bytes);
}

TEST(ScenarioTest, RefusesAWrongLineWithItsNumber) {
  const struct {
    const char* text;
    const char* reason;
  } cases[] = {
      {"battery", "line 1: expected name = value, found 'battery'"},
      {"\n= 3", "line 2: expected name = value, found '= 3'"},
      {"user = ", "line 1: expected name = value, found 'user ='"},
      {"# first\nspeed = 3", "line 2: there is no setting 'speed'"},
      {"battery = 3\nbattery = 3", "line 2: battery is given twice"},
      {"battery = 101", "line 1: battery takes 0 to 100, or 255 for unknown, not '101'"},
      {"user = maybe", "line 1: user takes yes or no, not 'maybe'"},
      {"keyboard = 1.2.3", "line 1: keyboard takes four digits such as 1.0.2.1, not '1.2.3'"},
      {"transfer-size = 65536", "line 1: transfer-size takes 0 to 65535 bytes, not '65536'"},
      {"write-ms = 16777216", "line 1: write-ms takes 0 to 16777215 milliseconds, not '16777216'"},
      {"firmware = 0xFFFFFFFF 2",
       "line 1: firmware takes an address and a size in bytes, not '0xFFFFFFFF 2'"},
  };
  for (const auto& test : cases) {
    Scenario scenario;
    EXPECT_EQ(Read(test.text, scenario), test.reason);
  }
}

TEST(ScenarioTest, RefusesWhatIsNearlyRight) {
  const char* const lines[] = {
      "map = @Flash/0x08000000/04*016Kg",               // no quotes
      "map = \"@Flash/0x08000000/04*016Kg",             // one of them
      "map = \"Flash/0x08000000/04*016Kg\"",            // no @
      "map = \"@Flash/08000000/04*016Kg\"",             // address not in hex
      "map = \"@Flash/0x08000000/04*016Kh\"",           // no such access
      "map = \"@Flash/0xFFFFF000/02*004Kg\"",           // beyond the address space
      "map = \"@Flash/0x0/65*001Mg\"",                  // more than a keyboard has
      "map = \"@Flash/0x0/02*004Kg/0x1000/01*004Kg\"",  // one over the other
      "attach-at = 3",
      "attach-at = 1.2345s",
      "alternate-setting = 256",
      "alternate-setting = 0 \"@map",
      "collection = 1 6 inn 3",
      "collection = 1 6 in 65536",
      "arrival-order = 1 b",
      "target = 256",
      "target = 0: 0x0 1 full 3",
      "target = 0: 0x0 1,",
      "seed = 18446744073709551616",
  };
  for (const char* const line : lines) {
    Scenario scenario;
    EXPECT_NE(Read(line, scenario).find(" takes "), std::string::npos) << line;
  }
}

}  // namespace
