// Opening a file for buffered binary reading by a path such as "C:\Windows\...".
//
// The path is in the thread's ANSI code page and ends with a NUL. Here it names a file on the
// machine's drive; on Windows it is handed on as it is.
#pragma once

#include <cstdio>

// Null when the file cannot be opened. The caller closes it with std::fclose.
std::FILE* OpenBinaryFile(const char* path);
