// Finds the shell of the user who is logged on, whose token the notifier is started with.
//
// The logon screen's registry state names the user who was selected last and the sessions where
// that user is logged on. The first "explorer.exe" process in one of these sessions is the answer.
// Called by the notifier launch on any thread. Everything is searched anew on every call; nothing
// is shared, kept or left open.
#pragma once

#include <windows.h>

#include "common/types.h"

inline constexpr u32 MaxCandidateSessions = 5;

// The sessions in which the selected user is logged on.
struct candidateSessionID {
  // Session ids in the order found.
  u32 sessionIDs[MaxCandidateSessions];
  // How many of them are filled.
  u32 count;
};
static_assert(sizeof(candidateSessionID) == 24);

// Returns 1 and stores the process id of the user's shell, or returns 0 and stores nothing: nobody
// is logged on, or the registry or the processes could not be read.
i32 FindActiveUserSession(DWORD* processId);

// Fills the record from the two opened keys; the caller closes them.
//
// A session's id is the position of its subkey in the enumeration plus one, whatever the subkey is
// called. Further sessions than the record has room for are left out. Without a readable SID of the
// selected user no session is a candidate.
void CollectCandidateSessions(HKEY logonUiKey, HKEY sessionDataKey, candidateSessionID* sessions);

// Picks the "explorer.exe" processes out of a list of process ids, in list order.
//
// explorerIds has room for processCount ids and is not the input list. Returns 1 with
// *explorerCount written, possibly 0, or returns 0 with nothing written when the list is null or
// empty.
i32 FindExplorerProcesses(const DWORD* processIds, u32 processCount, DWORD* explorerIds,
                          u32* explorerCount);
