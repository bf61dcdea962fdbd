// The names of other processes where Wine cannot tell them.
#pragma once

// Has vantrel.exe ask here, in place of Windows, for the first module of another process and its
// name. Windows reads these out of that process's memory, which QEMU lets nobody read, so a run on
// ARM64 would never find the user's explorer.exe. Called once, while the process is being loaded.
void AnswerProcessNames();
