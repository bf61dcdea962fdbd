// The main of the test programs: one test a process, and red that is short.
#pragma once

// Fails the test under way for that reason and ends the process. May be called by a signal handler
// and by any thread, whatever it holds.
[[noreturn]] void EndTest(const char* why);
