// A keyboard whose interfaces come one after the other, as Windows starts them. The service looks
// once, at start-up or when the keys come, and takes what is there by then.

#include "tests/support/running_update_test.h"

namespace {

// The usual keyboard's interfaces in the order in which they are counted.
enum Interface : std::size_t { KeysCollection, Keys, Media, Report };

constexpr u32 GapMs = 50;
constexpr u64 FirstLookMs = 15'000;

using Order = std::vector<std::size_t>;

const Texts Good = {"START", "COMPLETE"};
const Texts Silence = {};
const Texts NoReport = {"START", "DISCONNECT"};  // both requests found nobody to take them

struct ArrivingCase : NamedRow {
  bool atStartUp;  // the look comes between the first and the second, else when the keys come
  Order order;
  u32 gapMs;
  Texts words;
};

class ArrivingTest : public RunningUpdateTest, public OfTable<ArrivingCase> {
 protected:
  simulator::VirtualKeyboard& Arrive() {
    simulator::KeyboardOptions options;
    options.arrivalOrder = row().order;
    options.arrivalGapMs = row().gapMs;
    StartService();
    PassTime(row().atStartUp ? FirstLookMs - row().gapMs / 2 : 60'000);
    return PlugIn(options);
  }
};

TEST_OF_ROW(ArrivingTest, IsServedByWhatIsThereOrAtItsNextAttachment) {
  simulator::VirtualKeyboard& keyboard = Arrive();
  if (row().words == Good) {
    ExpectUpdated(keyboard, Good);
    return;
  }
  PassTime(60'000);
  EXPECT_EQ(Words(), row().words);
  EXPECT_EQ(keyboard.runningVersion(), simulator::KeyboardOptions{}.version);
  EXPECT_EQ(keyboard.enterDfuReports(), 0u);
  EXPECT_EQ(CountLines("Keyboard attached\n"), row().atStartUp ? 0u : 1u);

  keyboard.Detach();
  keyboard.Change([](simulator::KeyboardOptions& options) { options.arrivalOrder = {}; });
  keyboard.Attach();
  Texts words = row().words;
  words.insert(words.end(), Good.begin(), Good.end());
  ExpectUpdated(keyboard, words);
}

ROWS(ArrivingTest, IsServedByWhatIsThereOrAtItsNextAttachment, NameOfRow,
     {ArrivingCase{{"KeysLast"}, false, {KeysCollection, Media, Report, Keys}, GapMs, Good},
      ArrivingCase{{"KeysAfterTheReport"}, false, {Report, Keys, Media}, GapMs, Good},
      ArrivingCase{{"KeysFirst"}, false, {Keys, KeysCollection, Media, Report}, GapMs, Silence},
      ArrivingCase{{"KeysAfterTheirCollection"}, false, {KeysCollection, Keys}, GapMs, Silence},
      ArrivingCase{{"KeysBeforeTheReport"}, false, {Media, Keys, Report}, GapMs, NoReport},
      ArrivingCase{{"ReportWhileTheVersionIsRead"}, false, {Media, Keys, Report}, 1, Good},
      ArrivingCase{{"ReportFirst"}, true, {Report, Media}, GapMs, Good},
      ArrivingCase{{"KeysFirstAtStartUp"}, true, {Keys, KeysCollection}, GapMs, Silence},
      ArrivingCase{{"MediaFirst"}, true, {Media, Report}, GapMs, NoReport}});

}  // namespace
