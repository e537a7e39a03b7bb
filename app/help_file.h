// The path of the program's help file: the program's own path with its
// extension replaced by ".HLP".
#pragma once

#include <windows.h>

// Turns `path`, the program path as GetModuleFileNameW wrote it into a
// buffer of MAX_PATH characters with its result `length`, into the help
// file's path: the file name's extension, if it has one, becomes ".HLP",
// and a name without one gets ".HLP" appended. Returns false, and the path
// is then not to be used, when the system gave no path (0), cut it short
// (MAX_PATH: not even terminated on Windows XP), or ".HLP" does not fit.
bool MakeHelpFilePath(wchar_t (&path)[MAX_PATH], DWORD length);
