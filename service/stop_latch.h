// Remembers that the service has been told to stop.
//
// The reported state alone does not tell: a continue can follow the stop before anyone has looked.
// Once set, the mark stays until the process ends. The control handler sets it; the start-up
// sequence, the stop wait and the update decision ask. Any thread, no lock.
#pragma once

// Sets the mark.
void LatchStop();

// True from the first LatchStop on. Whoever is about to start something new then leaves it: what
// is not started needs no tidying up, and the next start of the service finds a keyboard that was
// left in DFU mode.
bool StopSeen();
