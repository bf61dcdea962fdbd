// Whether a keyboard that was asked to restart in DFU mode is still on its way out.
//
// Until it has left, it answers as the keyboard with old firmware that it was, and a decision about
// it would begin the same update a second time. A keyboard that shows several interfaces is
// announced several times, so such a decision does come.
//
// No lock: the enter-DFU command notes the report, the notification callbacks note that a keyboard
// left, and the update decision asks, each on its own thread.
#pragma once

// Called right before the report is sent. The keyboard counts as leaving from here on, because its
// removal may be told before the call returns.
void NoteReportBegins();

// The report was refused: nobody leaves.
void NoteReportRefused();

// A keyboard interface was removed, or one arrived in DFU mode.
void NoteKeyboardLeft();

// Waits until the keyboard that took the last report has left, or until 2000 ms have passed since
// that report: it then stays, and may be asked again. Returns at once when none is leaving.
void WaitUntilKeyboardHasLeft();
